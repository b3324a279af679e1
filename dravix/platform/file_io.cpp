#include "dravix/platform/file_io.h"

#include "dravix/platform/fault_injection.h"

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace dravix::platform {
namespace {

constexpr size_t kCopyChunk = 256 * 1024;

thread_local int t_lastError = 0;

// Keeps errno as the thread's last error and returns `result`.
template <typename T>
T Failed(T result) {
  t_lastError = errno;
  return result;
}

int64_t ReadFully(int fd, void* buffer, size_t size, int64_t offset) {
  auto* out = static_cast<unsigned char*>(buffer);
  size_t done = 0;
  while (done < size) {
    ssize_t n = offset < 0 ? ::read(fd, out + done, size - done)
                           : ::pread(fd, out + done, size - done, offset + static_cast<int64_t>(done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return Failed(-1);
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<int64_t>(done);
}

bool WriteFully(int fd, const void* buffer, size_t size, int64_t offset) {
  if (IoFaultHere(IoKind::kWrite)) return Failed(false);
  const auto* in = static_cast<const unsigned char*>(buffer);
  size_t done = 0;
  while (done < size) {
    ssize_t n = offset < 0 ? ::write(fd, in + done, size - done)
                           : ::pwrite(fd, in + done, size - done, offset + static_cast<int64_t>(done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return Failed(false);
    }
    if (n == 0) {
      errno = ENOSPC;
      return Failed(false);
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

File::~File() { Close(); }

File::File(File&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

File& File::operator=(File&& other) noexcept {
  if (this != &other) {
    Close();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

bool File::OpenWith(const char* path, int flags, bool exclusive) {
  Close();
  if (path == nullptr || *path == '\0') {
    errno = ENOENT;
    return Failed(false);
  }
  if (IoFaultHere(IoKind::kOpen)) return Failed(false);
  // O_NONBLOCK: opening a FIFO must not wait for its other end; the file is
  // refused below anyway. On the regular file that remains the flag changes
  // nothing, so it is left set.
  int fd = ::open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0644);
  if (fd < 0) return Failed(false);
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    const int err = errno;
    ::close(fd);
    t_lastError = S_ISDIR(st.st_mode) ? EISDIR : S_ISREG(st.st_mode) ? err : kErrNotRegular;
    return false;
  }
  int rc;
  do {
    rc = ::flock(fd, (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB);
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) {
    t_lastError = errno;
    ::close(fd);
    return false;
  }
  fd_ = fd;
  return true;
}

bool File::OpenRead(const char* path) { return OpenWith(path, O_RDONLY, false); }
bool File::OpenUpdate(const char* path) { return OpenWith(path, O_RDWR, false); }
bool File::OpenExclusive(const char* path) { return OpenWith(path, O_RDWR, true); }

bool File::Create(const char* path) {
  // Lock before emptying, so that an exclusive holder never sees its file
  // truncated under it.
  if (!OpenWith(path, O_RDWR | O_CREAT, false)) return false;
  if (IoFaultHere(IoKind::kTruncate) || ::ftruncate(fd_, 0) != 0) {
    t_lastError = errno;
    Close();
    return false;
  }
  return true;
}

bool File::OpenDuplicate(int fd) {
  Close();
  if (fd < 0) return false;
  fd_ = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
  return fd_ >= 0;
}

void File::Close() {
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
}

int64_t File::Read(void* buffer, size_t size) {
  if (fd_ < 0) return -1;
  return ReadFully(fd_, buffer, size, -1);
}

bool File::Write(const void* buffer, size_t size) { return fd_ >= 0 && WriteFully(fd_, buffer, size, -1); }

bool File::Seek(int64_t position) {
  if (fd_ < 0 || position < 0) return false;
  return ::lseek(fd_, position, SEEK_SET) == position;
}

bool File::SeekBy(int64_t delta) {
  const int64_t here = Tell();
  if (here < 0) return false;
  if (delta < 0 && -delta > here) return false;
  return Seek(here + delta);
}

int64_t File::Tell() const {
  if (fd_ < 0) return -1;
  return ::lseek(fd_, 0, SEEK_CUR);
}

int64_t File::PRead(void* buffer, size_t size, int64_t offset) const {
  if (fd_ < 0 || offset < 0) return -1;
  return ReadFully(fd_, buffer, size, offset);
}

bool File::PWrite(const void* buffer, size_t size, int64_t offset) {
  return fd_ >= 0 && offset >= 0 && WriteFully(fd_, buffer, size, offset);
}

int64_t File::Size() const {
  struct stat st {};
  if (fd_ < 0 || ::fstat(fd_, &st) != 0) return -1;
  return st.st_size;
}

bool File::Truncate(int64_t size) {
  if (fd_ < 0 || size < 0) {
    errno = EBADF;
    return Failed(false);
  }
  if (IoFaultHere(IoKind::kTruncate) || ::ftruncate(fd_, size) != 0) return Failed(false);
  return true;
}

bool File::Sync() {
  if (fd_ < 0) {
    errno = EBADF;
    return Failed(false);
  }
  if (IoFaultHere(IoKind::kSync) || ::fdatasync(fd_) != 0) return Failed(false);
  return true;
}

int64_t File::CopyFrom(const File& src, int64_t srcOffset, int64_t size) {
  if (fd_ < 0 || src.fd_ < 0 || srcOffset < 0 || size < 0) return -1;
  if (IoFaultHere(IoKind::kWrite)) return Failed(-1);
  int64_t done = 0;
  bool kernel = true;
  std::vector<unsigned char> buffer;
  while (done < size) {
    const int64_t want = size - done;
    if (kernel) {
      off_t in = srcOffset + done;
      ssize_t n = ::copy_file_range(src.fd_, &in, fd_, nullptr, static_cast<size_t>(want), 0);
      if (n > 0) {
        done += n;
        continue;
      }
      if (n == 0) break;
      if (errno == EINTR) continue;
      if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return Failed(-1);
      kernel = false;  // not offered here: fall back to the loop
    }
    if (buffer.empty()) buffer.resize(kCopyChunk);
    const size_t chunk = static_cast<size_t>(want < static_cast<int64_t>(kCopyChunk) ? want : kCopyChunk);
    const int64_t n = ReadFully(src.fd_, buffer.data(), chunk, srcOffset + done);
    if (n < 0) return -1;
    if (n == 0) break;
    if (!WriteFully(fd_, buffer.data(), static_cast<size_t>(n), -1)) return -1;
    done += n;
  }
  return done;
}

int LastFileError() { return t_lastError; }
void SetLastFileError(int err) { t_lastError = err; }

std::string FileErrorText(int err) {
  if (err == kErrNotRegular) return "not a regular file";
  if (err == 0) return "no error recorded";
  return std::strerror(err);
}

bool CheckRegularFile(const std::string& path, std::string* why, bool* missing) {
  if (missing != nullptr) *missing = false;
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) {
    if (missing != nullptr) *missing = errno == ENOENT;
    if (why != nullptr) *why = errno == ENOENT ? "no such file" : std::strerror(errno);
    t_lastError = errno;
    return false;
  }
  if (S_ISREG(st.st_mode)) return true;
  t_lastError = S_ISDIR(st.st_mode) ? EISDIR : kErrNotRegular;
  if (why != nullptr) {
    const char* kind = S_ISDIR(st.st_mode)    ? "a folder"
                       : S_ISFIFO(st.st_mode) ? "a FIFO"
                       : S_ISCHR(st.st_mode)  ? "a character device"
                       : S_ISBLK(st.st_mode)  ? "a block device"
                       : S_ISSOCK(st.st_mode) ? "a socket"
                                              : "a special file";
    *why = std::string(kind) + ", not a regular file";
  }
  return false;
}

bool RemoveFile(const char* path) {
  if (path == nullptr) return false;
  return ::unlink(path) == 0 || errno == ENOENT;
}

bool CopyWholeFile(const char* from, const char* to) {
  File in, out;
  if (!in.OpenRead(from) || !out.Create(to)) return false;
  std::vector<unsigned char> buffer(kCopyChunk);
  for (;;) {
    const int64_t n = in.Read(buffer.data(), buffer.size());
    if (n < 0) return false;
    if (n == 0) return true;
    if (!out.Write(buffer.data(), static_cast<size_t>(n))) return false;
  }
}

}  // namespace dravix::platform
