#include "dravix/platform/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace dravix::platform {
namespace {

bool Fail(std::string* error, const std::string& what, const std::string& where, int err) {
  if (error != nullptr) *error = what + " " + where + ": " + std::strerror(err);
  return false;
}

bool WriteAll(int fd, const char* p, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, p, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

bool ReplaceFileAtomically(const std::string& path, const void* data, size_t size, unsigned mode,
                           std::string* error) {
  // The temporary file lives beside the target so that rename() stays on
  // one file system and is atomic.
  std::string tmpl = path + ".tmpXXXXXX";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  const int fd = ::mkstemp(name.data());
  if (fd < 0) return Fail(error, "cannot create a temporary file for", path, errno);
  const std::string tmp(name.data());

  int err = 0;
  std::string what;
  if (::fchmod(fd, static_cast<mode_t>(mode & 07777)) != 0) {
    err = errno;
    what = "cannot set the mode of";
  } else if (!WriteAll(fd, static_cast<const char*>(data), size)) {
    err = errno;
    what = "cannot write";
  } else if (::fsync(fd) != 0) {
    err = errno;
    what = "cannot flush";
  }
  if (::close(fd) != 0 && err == 0) {
    err = errno;
    what = "cannot close";
  }
  if (err == 0 && ::rename(tmp.c_str(), path.c_str()) != 0) {
    err = errno;
    what = "cannot rename over";
  }
  if (err != 0) {
    ::unlink(tmp.c_str());
    return Fail(error, what, path, err);
  }
  // Make the rename itself durable: flush the folder's entry too.
  const size_t slash = path.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
  const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    ::fsync(dir);
    ::close(dir);
  }
  return true;
}

}  // namespace dravix::platform
