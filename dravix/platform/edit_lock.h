// The lock a process holds while it edits a file of the program folder:
// from reading the file, through changing it, to its checked save, so that
// two processes editing at once never lose each other's change.
//
// The lock is an exclusive flock on the folder that holds the file, not on
// the file: a save replaces the file by a rename, and a lock on the old
// file would no longer exclude a process that opens the new one. Locking
// the folder leaves no lock file behind and serialises every edit of the
// folder's files, which are small and quick. A process that dies holding
// the lock releases it with its descriptors. Readers take no lock: saves
// are atomic, so a reader sees the old file or the new one.
//
// Movable, not copyable; released by the destructor.
#pragma once

#include <string>

namespace dravix::platform {

class EditLock {
 public:
  EditLock() = default;
  ~EditLock();
  EditLock(EditLock&& other) noexcept;
  EditLock& operator=(EditLock&& other) noexcept;
  EditLock(const EditLock&) = delete;
  EditLock& operator=(const EditLock&) = delete;

  // Waits for and takes the edit lock of the folder holding `file`. False
  // with `error` (what failed, where, why) when the folder cannot be
  // opened or locked.
  bool Acquire(const std::string& file, std::string* error = nullptr);
  bool Held() const { return fd_ >= 0; }
  void Release();

 private:
  int fd_ = -1;
};

}  // namespace dravix::platform
