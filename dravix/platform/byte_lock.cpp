#include "dravix/platform/byte_lock.h"

#include "dravix/platform/ofd_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace dravix::platform {

ByteLock::~ByteLock() { Release(); }

ByteLock::ByteLock(ByteLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

ByteLock& ByteLock::operator=(ByteLock&& other) noexcept {
  if (this != &other) {
    Release();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

ByteLock::Result ByteLock::TryAcquire(const std::string& file, long byte, std::string* error) {
  Release();
  const int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) {
    if (error) *error = "cannot open the lock file " + file + ": " + std::strerror(errno);
    return Result::kError;
  }
  if (OfdLock(fd, F_WRLCK, static_cast<off_t>(byte), false)) {
    fd_ = fd;
    return Result::kTaken;
  }
  const int why = errno;
  ::close(fd);
  if (why == EAGAIN || why == EACCES) return Result::kHeldElsewhere;
  if (error) *error = "cannot lock " + file + ": " + std::strerror(why);
  return Result::kError;
}

void ByteLock::Release() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

}  // namespace dravix::platform
