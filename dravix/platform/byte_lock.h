// An exclusive lock on one byte of a lock file, so that processes can claim
// numbered things (camera N of a record folder) with one file for all of
// them. The lock belongs to the open file description: it conflicts with
// every other holder, in this process too, and the kernel drops it when the
// holder closes it or dies, so a crash leaves no stale claim behind. The
// lock file stays (empty).
//
// Movable, not copyable; released by the destructor.
#pragma once

#include <string>

namespace dravix::platform {

class ByteLock {
 public:
  enum class Result { kTaken, kHeldElsewhere, kError };

  ByteLock() = default;
  ~ByteLock();
  ByteLock(ByteLock&& other) noexcept;
  ByteLock& operator=(ByteLock&& other) noexcept;
  ByteLock(const ByteLock&) = delete;
  ByteLock& operator=(const ByteLock&) = delete;

  // Takes byte `byte` of `file` (made when missing) without waiting.
  // kError with `error` (what, where, why) when the file cannot be made,
  // opened or locked.
  Result TryAcquire(const std::string& file, long byte, std::string* error);
  bool Held() const { return fd_ >= 0; }
  void Release();

 private:
  int fd_ = -1;
};

}  // namespace dravix::platform
