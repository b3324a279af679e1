#include "dravix/platform/append_file.h"

#include "dravix/platform/fault_injection.h"
#include "dravix/platform/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace dravix::platform {

AppendFile::~AppendFile() { Close(); }

bool AppendFile::Open(const std::string& path) {
  Close();
  if (IoFaultHere(IoKind::kOpen)) {
    SetLastFileError(errno);
    return false;
  }
  // O_NONBLOCK: a FIFO in the log's place must not hang the writer; it is
  // refused below.
  fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0644);
  if (fd_ < 0) {
    SetLastFileError(errno);
    return false;
  }
  struct stat st {};
  if (::fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) {
    SetLastFileError(kErrNotRegular);
    Close();
    return false;
  }
  ::fcntl(fd_, F_SETFL, ::fcntl(fd_, F_GETFL) & ~O_NONBLOCK);
  return true;
}

void AppendFile::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool AppendFile::Append(const void* data, size_t size) {
  if (fd_ < 0) return false;
  if (IoFaultHere(IoKind::kWrite)) {
    SetLastFileError(errno);
    return false;
  }
  const char* p = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(fd_, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      SetLastFileError(n < 0 ? errno : ENOSPC);
      return false;
    }
    p += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

int64_t AppendFile::Size() const {
  struct stat st {};
  if (fd_ < 0 || ::fstat(fd_, &st) != 0) return -1;
  return static_cast<int64_t>(st.st_size);
}

int64_t AppendFile::FreeSpace() const {
  struct statvfs vfs {};
  if (fd_ < 0 || ::fstatvfs(fd_, &vfs) != 0) return -1;
  return static_cast<int64_t>(static_cast<uint64_t>(vfs.f_bfree) * vfs.f_frsize);
}

bool RenamePath(const std::string& from, const std::string& to) {
  if (IoFaultHere(IoKind::kRename) || std::rename(from.c_str(), to.c_str()) != 0) {
    SetLastFileError(errno);
    return false;
  }
  return true;
}

}  // namespace dravix::platform
