#include "dravix/platform/edit_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace dravix::platform {

EditLock::~EditLock() { Release(); }

EditLock::EditLock(EditLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

EditLock& EditLock::operator=(EditLock&& other) noexcept {
  if (this != &other) {
    Release();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

bool EditLock::Acquire(const std::string& file, std::string* error) {
  Release();
  const size_t slash = file.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "." : file.substr(0, slash == 0 ? 1 : slash);
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    if (error != nullptr) *error = "cannot open the folder " + folder + " to lock it: " + std::strerror(errno);
    return false;
  }
  while (::flock(fd, LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    if (error != nullptr) *error = "cannot lock the folder " + folder + ": " + std::strerror(errno);
    ::close(fd);
    return false;
  }
  fd_ = fd;
  return true;
}

void EditLock::Release() {
  if (fd_ >= 0) ::close(fd_);  // closing the descriptor releases the flock
  fd_ = -1;
}

}  // namespace dravix::platform
