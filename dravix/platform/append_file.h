// A file opened for appending, shared with any other writer.
//
// Open() creates the file when missing and never truncates it. Each
// Append() is one write(2) on an O_APPEND descriptor, so the kernel places
// the whole buffer at the current end of the file in one step: writers in
// several threads or processes never interleave inside one Append(). (A
// write the kernel cuts short, which happens only when the disk fills, is
// finished with a further write.)
//
// Open/Close must not race with Append on the same object; the owner
// serialises them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace dravix::platform {

class AppendFile {
 public:
  AppendFile() = default;
  ~AppendFile();
  AppendFile(const AppendFile&) = delete;
  AppendFile& operator=(const AppendFile&) = delete;

  // Opens (creating with mode 0644) for appending; closes any file open
  // before. false when the file cannot be opened.
  bool Open(const std::string& path);
  void Close();
  bool IsOpen() const { return fd_ >= 0; }
  // Appends the bytes; false when not open or the write failed.
  bool Append(const void* data, size_t size);
  // The file's current length (what any writer has appended), or -1.
  int64_t Size() const;
  // Total free bytes of the file system holding the open file, or -1.
  int64_t FreeSpace() const;

 private:
  int fd_ = -1;
};

// Renames `from` to `to`, replacing `to`. false on failure.
bool RenamePath(const std::string& from, const std::string& to);

}  // namespace dravix::platform
