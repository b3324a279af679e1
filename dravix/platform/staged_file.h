// A new file that appears under its name whole or not at all.
//
// The content is written into a file with no name in the folder of the
// target (O_TMPFILE), so a process killed or a machine losing power while
// writing leaves nothing behind: the kernel reclaims the nameless file.
// Commit() flushes it, links it in under a temporary name, renames that
// over the target and flushes the folder's entry. Where the file system has
// no nameless files, a named temporary file beside the target stands in
// (a kill while writing then leaves that file behind).
//
// Use it for every output that must be whole or absent: settings files,
// clips, exports, pictures. A StagedFile is movable, not copyable; one that
// is destroyed without a successful Commit() discards its content and leaves
// the target exactly as it was.
#pragma once

#include <string>

namespace dravix::platform {

class StagedFile {
 public:
  StagedFile() = default;
  ~StagedFile();
  StagedFile(StagedFile&& other) noexcept;
  StagedFile& operator=(StagedFile&& other) noexcept;
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;

  // Starts a new file for `target` (its folder must exist and be writable).
  // On failure returns false with `error` saying what failed and where.
  bool Open(const std::string& target, std::string* error = nullptr);

  bool IsOpen() const { return fd_ >= 0; }
  // The descriptor to write the content through (read-write, positioned at 0).
  int fd() const { return fd_; }
  const std::string& target() const { return target_; }

  // Writes all of `size` bytes at the current position.
  bool Write(const void* data, size_t size, std::string* error = nullptr);

  // Sets the permission bits (not masked by the umask), flushes the content,
  // and puts the file in place of the target. False (target untouched, the
  // staged content discarded) with `error` on failure.
  bool Commit(unsigned mode = 0644, std::string* error = nullptr);

  // Drops the staged content; the target is untouched. Done by the destructor.
  void Discard();

 private:
  int fd_ = -1;
  bool named_ = false;  // the fallback: the content already has a temporary name
  std::string target_;
  std::string tmpName_;
};

}  // namespace dravix::platform
