// Open-file-description byte locks, shared by the named objects (mutexes,
// shared memory). The kernel drops them when the holder closes the file or
// dies, which is what makes a crashed holder leave nothing behind.
// Internal to dravix/platform.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

namespace dravix::platform {

// Takes (F_RDLCK, F_WRLCK) or drops (F_UNLCK) a lock on one byte; `wait`
// blocks until it is granted.
inline bool OfdLock(int fd, short type, off_t byte, bool wait) {
  struct flock fl {};
  fl.l_type = type;
  fl.l_whence = SEEK_SET;
  fl.l_start = byte;
  fl.l_len = 1;
  for (;;) {
    if (fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &fl) == 0) return true;
    if (errno != EINTR) return false;
  }
}

// Another description holds a lock on `byte` that conflicts with `type`.
inline bool OfdConflicts(int fd, short type, off_t byte) {
  struct flock fl {};
  fl.l_type = type;
  fl.l_whence = SEEK_SET;
  fl.l_start = byte;
  fl.l_len = 1;
  return fcntl(fd, F_OFD_GETLK, &fl) == 0 && fl.l_type != F_UNLCK;
}

// The name `path` still leads to the file open on `fd` (it was not removed
// or replaced meanwhile).
inline bool StillNamed(int fd, const std::string& path) {
  struct stat held, named;
  return fstat(fd, &held) == 0 && stat(path.c_str(), &named) == 0 && held.st_ino == named.st_ino &&
         held.st_dev == named.st_dev;
}

}  // namespace dravix::platform
