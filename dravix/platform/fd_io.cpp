#include "dravix/platform/fd_io.h"

#include "dravix/platform/fault_injection.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace dravix::platform {

bool PWriteFd(int fd, const void* data, size_t size, int64_t offset, std::string* error) {
  const auto* p = static_cast<const uint8_t*>(data);
  if (IoFaultHere(IoKind::kWrite)) {
    if (error != nullptr) *error = std::strerror(errno);
    return false;
  }
  while (size > 0) {
    const ssize_t n = ::pwrite(fd, p, size, offset);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (error != nullptr) *error = std::strerror(errno);
      return false;
    }
    p += n, size -= static_cast<size_t>(n), offset += n;
  }
  return true;
}

int64_t FdSize(int fd) {
  struct stat st {};
  return ::fstat(fd, &st) == 0 ? static_cast<int64_t>(st.st_size) : -1;
}

std::string FdPath(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

}  // namespace dravix::platform
