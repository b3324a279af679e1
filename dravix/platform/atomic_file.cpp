#include "dravix/platform/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
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

std::string FolderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

// Sets the mode of fd, writes the bytes and flushes them; returns 0 or the
// error number, with `what` saying which step failed.
int Fill(int fd, const void* data, size_t size, unsigned mode, std::string* what) {
  if (::fchmod(fd, static_cast<mode_t>(mode & 07777)) != 0) {
    *what = "cannot set the mode of";
    return errno;
  }
  if (!WriteAll(fd, static_cast<const char*>(data), size)) {
    *what = "cannot write";
    return errno;
  }
  if (::fsync(fd) != 0) {
    *what = "cannot flush";
    return errno;
  }
  return 0;
}

// Writes the content into a file with no name in the target's folder and
// only then links it in under a temporary name. A process killed (or a
// machine losing power) while writing leaves nothing behind: the kernel
// reclaims the nameless file. Returns the temporary name, or an empty one
// when the folder's file system cannot do this (the caller then falls back
// to a named temporary file); a write error is reported through `err`.
std::string WriteUnnamed(const std::string& path, const void* data, size_t size, unsigned mode,
                         int* err, std::string* what) {
  const int fd = ::open(FolderOf(path).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
  if (fd < 0) return {};
  *err = Fill(fd, data, size, mode, what);
  std::string tmp;
  if (*err == 0) {
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    for (int attempt = 0; attempt < 100 && tmp.empty(); ++attempt) {
      std::string name = path + ".tmp" + std::to_string(::getpid()) + "_" + std::to_string(attempt);
      if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        tmp = std::move(name);
      } else if (errno != EEXIST) {
        break;
      }
    }
  }
  if (::close(fd) != 0 && *err == 0 && !tmp.empty()) {
    *err = errno;
    *what = "cannot close";
  }
  return tmp;
}

// The same through a named temporary file, for file systems without
// nameless files; a kill while writing leaves that file behind.
std::string WriteNamed(const std::string& path, const void* data, size_t size, unsigned mode,
                       int* err, std::string* what) {
  std::string tmpl = path + ".tmpXXXXXX";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  const int fd = ::mkstemp(name.data());
  if (fd < 0) {
    *err = errno;
    *what = "cannot create a temporary file for";
    return {};
  }
  std::string tmp(name.data());
  *err = Fill(fd, data, size, mode, what);
  if (::close(fd) != 0 && *err == 0) {
    *err = errno;
    *what = "cannot close";
  }
  return tmp;
}

}  // namespace

bool ReplaceFileAtomically(const std::string& path, const void* data, size_t size, unsigned mode,
                           std::string* error) {
  // The temporary file lives beside the target so that rename() stays on
  // one file system and is atomic.
  int err = 0;
  std::string what;
  std::string tmp = WriteUnnamed(path, data, size, mode, &err, &what);
  if (tmp.empty() && err == 0) tmp = WriteNamed(path, data, size, mode, &err, &what);
  if (err == 0 && ::rename(tmp.c_str(), path.c_str()) != 0) {
    err = errno;
    what = "cannot rename over";
  }
  if (err != 0) {
    if (!tmp.empty()) ::unlink(tmp.c_str());
    return Fail(error, what, path, err);
  }
  // Make the rename itself durable: flush the folder's entry too.
  const int dir = ::open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    ::fsync(dir);
    ::close(dir);
  }
  return true;
}

}  // namespace dravix::platform
