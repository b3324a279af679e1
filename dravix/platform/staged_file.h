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
#include <utility>
#include <vector>

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

// A hidden folder beside a target, for outputs that a writer creates by
// name (a recording and the index it names after it), so they cannot be
// nameless files. Everything is written inside the folder, checked there,
// and moved into place with CommitFile() (one rename per file).
//
// Nothing is left behind when the owner dies: Open() starts a guardian, a
// small process in a session of its own (so a Ctrl-C or a signal to the
// owner's process group does not reach it) that waits on a pipe; when the
// pipe closes, whatever the way the owner ended (SIGKILL included), it
// removes the folder and its files, after undoing a CommitFiles() that the
// owner did not finish (so several files change together or not at all).
// As a second line, a later owner sweeps
// the folders of owners that no longer run (SweepStaleStagedFolders), for
// the case where the guardian itself was killed.
//
// Open() forks: call it while the process runs one thread. Movable, not
// copyable; the destructor discards.
class StagedFolder {
 public:
  StagedFolder() = default;
  ~StagedFolder();
  StagedFolder(StagedFolder&& other) noexcept;
  StagedFolder& operator=(StagedFolder&& other) noexcept;
  StagedFolder(const StagedFolder&) = delete;
  StagedFolder& operator=(const StagedFolder&) = delete;

  // Creates the folder in `folder` (which must exist and be writable) and
  // starts its guardian. False with `error` on failure.
  bool Open(const std::string& folder, std::string* error = nullptr);
  bool IsOpen() const { return !path_.empty(); }
  // The folder, with a trailing '/'.
  const std::string& path() const { return path_; }

  // Moves the staged files (name in the folder, target) into place as one
  // step: each is flushed and exchanged with its target (or renamed in
  // when the target does not exist); the targets lie in the folder given
  // to Open(). If one move fails, or the owner dies before the last one,
  // the moves already made are undone (by the owner, or by the guardian)
  // and every target holds its old file again. False with `error` then.
  // (On a file system without an atomic exchange the moves are plain
  // renames and cannot be undone.)
  bool CommitFiles(const std::vector<std::pair<std::string, std::string>>& files, std::string* error = nullptr);

  // Removes the folder and what is left in it, and ends the guardian.
  void Discard();

 private:
  std::string path_;
  int guardianPipe_ = -1;  // write end; its closing wakes the guardian
  int guardianPid_ = -1;
};

// Removes the staged folders in `folder` whose owners no longer run.
// Returns how many were removed.
int SweepStaleStagedFolders(const std::string& folder);

// True when both paths name the same existing file (same device and
// inode, symlinks followed): a hard link or a symlink to a file is that file.
bool SameFile(const std::string& a, const std::string& b);

}  // namespace dravix::platform
