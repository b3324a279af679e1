#include "dravix/platform/staged_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace dravix::platform {
namespace {

bool Fail(std::string* error, const std::string& what, const std::string& where, int err) {
  if (error != nullptr) *error = what + " " + where + ": " + std::strerror(err);
  return false;
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

// Links the nameless file behind `fd` into the folder under a fresh
// temporary name beside `target`; returns the name, or "" with errno set.
std::string LinkIn(int fd, const std::string& target) {
  const std::string self = "/proc/self/fd/" + std::to_string(fd);
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string name = target + ".tmp" + std::to_string(::getpid()) + "_" + std::to_string(attempt);
    if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) return name;
    if (errno != EEXIST) return {};
  }
  errno = EEXIST;
  return {};
}

}  // namespace

StagedFile::~StagedFile() { Discard(); }

StagedFile::StagedFile(StagedFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      named_(other.named_),
      target_(std::move(other.target_)),
      tmpName_(std::move(other.tmpName_)) {}

StagedFile& StagedFile::operator=(StagedFile&& other) noexcept {
  if (this != &other) {
    Discard();
    fd_ = std::exchange(other.fd_, -1);
    named_ = other.named_;
    target_ = std::move(other.target_);
    tmpName_ = std::move(other.tmpName_);
  }
  return *this;
}

bool StagedFile::Open(const std::string& target, std::string* error) {
  Discard();
  target_ = target;
  // The temporary file lives beside the target so that rename() stays on
  // one file system and is atomic.
  fd_ = ::open(FolderOf(target).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (fd_ >= 0) {
    named_ = false;
    return true;
  }
  if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
    return Fail(error, "cannot create a temporary file for", target, errno);
  }
  std::string tmpl = target + ".tmpXXXXXX";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  fd_ = ::mkostemp(name.data(), O_CLOEXEC);
  if (fd_ < 0) return Fail(error, "cannot create a temporary file for", target, errno);
  named_ = true;
  tmpName_ = name.data();
  return true;
}

bool StagedFile::Write(const void* data, size_t size, std::string* error) {
  const char* p = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(fd_, p, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return Fail(error, "cannot write", target_, errno);
    }
    p += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool StagedFile::Commit(unsigned mode, std::string* error) {
  if (fd_ < 0) return Fail(error, "nothing staged for", target_, EBADF);
  int err = 0;
  std::string what;
  if (::fchmod(fd_, static_cast<mode_t>(mode & 07777)) != 0) {
    err = errno;
    what = "cannot set the mode of";
  } else if (::fsync(fd_) != 0) {
    err = errno;
    what = "cannot flush";
  } else if (!named_) {
    tmpName_ = LinkIn(fd_, target_);
    if (tmpName_.empty()) {
      err = errno;
      what = "cannot link in";
    }
  }
  if (::close(fd_) != 0 && err == 0) {
    err = errno;
    what = "cannot close";
  }
  fd_ = -1;
  if (err == 0 && ::rename(tmpName_.c_str(), target_.c_str()) != 0) {
    err = errno;
    what = "cannot rename over";
  }
  if (err != 0) {
    if (!tmpName_.empty()) ::unlink(tmpName_.c_str());
    tmpName_.clear();
    return Fail(error, what, target_, err);
  }
  tmpName_.clear();
  // Make the rename itself durable: flush the folder's entry too.
  const int dir = ::open(FolderOf(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    ::fsync(dir);
    ::close(dir);
  }
  return true;
}

void StagedFile::Discard() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  if (named_ && !tmpName_.empty()) ::unlink(tmpName_.c_str());
  tmpName_.clear();
}

}  // namespace dravix::platform
