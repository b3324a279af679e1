// Plain file handles for the recording-file code: sequential and positioned
// reads and writes, size, truncation and a whole-range kernel copy.
//
// Sharing follows the recorder's rules with advisory locks (flock): a handle
// opened for reading, for update or for creation holds a shared lock; a
// handle opened exclusively holds an exclusive one. So an exclusive open
// fails while any other handle on the file is open (a recording still being
// written, a reader), and a shared open fails while an exclusive handle is
// held. Neither waits.
//
// Only regular files are opened: a FIFO, a device or a folder is refused
// without blocking (the open itself never waits for a FIFO's writer).
//
// All reads loop over short transfers and EINTR: a read returns fewer bytes
// than asked only at the end of the file. A File is movable, not copyable.
//
// Failures keep their reason: LastFileError() gives the errno of the last
// call of this file layer that failed in the calling thread, and
// FileErrorText() words it. Opens, writes, flushes and truncations pass the
// fault-injection hook (fault_injection.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace dravix::platform {

class File {
 public:
  File() = default;
  ~File();
  File(File&& other) noexcept;
  File& operator=(File&& other) noexcept;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Existing file, read only, shared.
  bool OpenRead(const char* path);
  // Existing file, read and write, shared ("rb+").
  bool OpenUpdate(const char* path);
  // Existing file, read and write, exclusive.
  bool OpenExclusive(const char* path);
  // New or emptied file, read and write, shared; mode 0644 before umask.
  bool Create(const char* path);
  // A handle of its own on the file behind descriptor `fd` (a duplicate;
  // `fd` stays the caller's), for content staged elsewhere, such as a
  // StagedFile's. No lock is taken: the file has no name yet.
  bool OpenDuplicate(int fd);

  bool IsOpen() const { return fd_ >= 0; }
  void Close();

  // Sequential access from the handle's own position.
  // Bytes read (0 at the end of the file), or -1 on an error.
  int64_t Read(void* buffer, size_t size);
  bool Write(const void* buffer, size_t size);
  // Absolute position; false (position unchanged) for a negative target.
  bool Seek(int64_t position);
  // Moves by `delta`; false when the result would be negative.
  bool SeekBy(int64_t delta);
  // The current position, or -1.
  int64_t Tell() const;

  // Positioned access; the handle's position is not used or moved.
  int64_t PRead(void* buffer, size_t size, int64_t offset) const;
  bool PWrite(const void* buffer, size_t size, int64_t offset);

  // The file's size now, or -1.
  int64_t Size() const;
  bool Truncate(int64_t size);
  // Flushes written data to the device.
  bool Sync();

  // Copies `size` bytes from `src` at `srcOffset` to this file at its own
  // position, which advances. The kernel copies where it can (no trip
  // through user memory); otherwise a 256 KiB read/write loop does. Returns
  // the bytes copied: fewer than `size` when `src` ends first, -1 on error.
  int64_t CopyFrom(const File& src, int64_t srcOffset, int64_t size);

 private:
  bool OpenWith(const char* path, int flags, bool exclusive);
  int fd_ = -1;
};

// The error code for "not a regular file" (a FIFO, a device, a folder).
constexpr int kErrNotRegular = 0x10000;
// errno of the last failed file-layer call in this thread, 0 when none.
int LastFileError();
// Records `err` as the thread's last file error (for the other file
// providers of this layer).
void SetLastFileError(int err);
// strerror, or "not a regular file" for kErrNotRegular.
std::string FileErrorText(int err);

// Whether `path` names a regular file, found without opening it (so a FIFO
// never blocks). False with `why` ("no such file", "a FIFO, not a regular
// file", or the OS reason) otherwise; `missing` tells ENOENT apart.
bool CheckRegularFile(const std::string& path, std::string* why = nullptr, bool* missing = nullptr);

// Removes a file; true when it is gone afterwards (or never existed).
bool RemoveFile(const char* path);
// Copies a whole file with a 256 KiB read/write loop; true on success.
bool CopyWholeFile(const char* from, const char* to);

}  // namespace dravix::platform
