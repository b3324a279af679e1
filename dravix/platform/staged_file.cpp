#include "dravix/platform/staged_file.h"

#include "dravix/platform/fault_injection.h"
#include "dravix/platform/file_io.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace dravix::platform {
namespace {

bool Fail(std::string* error, const std::string& what, const std::string& where, int err) {
  SetLastFileError(err);
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
  if (IoFaultHere(IoKind::kOpen)) return Fail(error, "cannot create a temporary file for", target, errno);
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
  if (IoFaultHere(IoKind::kWrite)) return Fail(error, "cannot write", target_, errno);
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
  } else if (IoFaultHere(IoKind::kSync) || ::fsync(fd_) != 0) {
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
  if (err == 0 && (IoFaultHere(IoKind::kRename) || ::rename(tmpName_.c_str(), target_.c_str()) != 0)) {
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

// --- StagedFolder ------------------------------------------------------------
//
// The guardian is forked while the owner is single-threaded, and does only
// system calls until it exits: dup2 the standard streams to /dev/null (an
// owner's reader waiting for end of output must not wait for the guardian),
// close everything else, setsid, block in read() on the pipe, then remove
// the folder with getdents64/unlinkat/rmdir.

namespace dravix::platform {
namespace {

constexpr char kStagePrefix[] = ".dravix-stage-";

// Removes the files of the folder `path` (flat: the stage holds no
// subfolders), then the folder `path`. Async-signal-safe.
void RemoveStageFolder(const char* path) {
  const int dir = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    alignas(8) char buf[4096];
    for (;;) {
      const long n = ::syscall(SYS_getdents64, dir, buf, sizeof buf);
      if (n <= 0) break;
      for (long at = 0; at < n;) {
        struct Entry {
          uint64_t ino;
          int64_t off;
          unsigned short reclen;
          unsigned char type;
          char name[1];
        };
        const auto* e = reinterpret_cast<const Entry*>(buf + at);
        const char* name = buf + at + offsetof(Entry, name);
        if (!(name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))) ::unlinkat(dir, name, 0);
        at += e->reclen;
      }
    }
    ::close(dir);
  }
  ::rmdir(path);
}

// What the owner tells its guardian: before it moves staged files into
// place, one kPlan message per file (the device and inode of the new file,
// its staged name and its target); after the last move, kCommitted.
constexpr char kPlan = 'P';
constexpr char kCommitted = 'C';
struct PlanHead {
  uint64_t dev;
  uint64_t ino;
  uint32_t nameLength;
  uint32_t targetLength;
};
constexpr size_t kGuardianBuffer = 64 * 1024;

// Puts back what a commit cut short had moved: a target that now holds a
// planned new file gets its old file back from the stage (where the
// exchange left it), or is removed when it did not exist before.
// Async-signal-safe.
void RollBack(int stageDir, const char* message, size_t size) {
  size_t at = 0;
  while (at < size && message[at] == kPlan && at + 1 + sizeof(PlanHead) <= size) {
    PlanHead h;
    std::memcpy(&h, message + at + 1, sizeof h);
    const size_t need = at + 1 + sizeof h + h.nameLength + h.targetLength + 2;
    if (need > size) break;
    const char* name = message + at + 1 + sizeof h;
    const char* target = name + h.nameLength + 1;
    struct stat st {};
    if (::stat(target, &st) == 0 && st.st_dev == h.dev && st.st_ino == h.ino) {
      struct stat old {};
      if (::fstatat(stageDir, name, &old, AT_SYMLINK_NOFOLLOW) == 0)
        ::renameat2(stageDir, name, AT_FDCWD, target, RENAME_EXCHANGE);
      else
        ::unlink(target);
    }
    at = need;
  }
}

[[noreturn]] void RunGuardian(int readEnd, const char* path) {
  const int null = ::open("/dev/null", O_RDWR);
  if (null >= 0) {
    ::dup2(null, 0);
    ::dup2(null, 1);
    ::dup2(null, 2);
  }
  // Keep only the standard streams and the pipe's read end.
  const int keep = ::fcntl(readEnd, F_DUPFD, 3);
  ::syscall(SYS_close_range, 3u, keep > 3 ? static_cast<unsigned>(keep - 1) : 2u, 0u);
  ::syscall(SYS_close_range, static_cast<unsigned>(keep + 1), ~0u, 0u);
  ::setsid();
  ::signal(SIGINT, SIG_IGN);
  ::signal(SIGTERM, SIG_IGN);
  ::signal(SIGHUP, SIG_IGN);
  static char message[kGuardianBuffer];
  size_t size = 0;
  for (;;) {
    char sink[512];
    char* into = size < sizeof message ? message + size : sink;
    const size_t room = size < sizeof message ? sizeof message - size : sizeof sink;
    const ssize_t n = ::read(keep, into, room);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    if (into == message + size) size += static_cast<size_t>(n);
  }
  if (size > 0 && message[size - 1] != kCommitted) {
    const int dir = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
      RollBack(dir, message, size);
      ::close(dir);
    }
  }
  RemoveStageFolder(path);
  ::_exit(0);
}

bool WriteAll(int fd, const void* data, size_t size) {
  const char* p = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(fd, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

StagedFolder::~StagedFolder() { Discard(); }

StagedFolder::StagedFolder(StagedFolder&& other) noexcept
    : path_(std::move(other.path_)),
      guardianPipe_(std::exchange(other.guardianPipe_, -1)),
      guardianPid_(std::exchange(other.guardianPid_, -1)) {
  other.path_.clear();
}

StagedFolder& StagedFolder::operator=(StagedFolder&& other) noexcept {
  if (this != &other) {
    Discard();
    path_ = std::move(other.path_);
    other.path_.clear();
    guardianPipe_ = std::exchange(other.guardianPipe_, -1);
    guardianPid_ = std::exchange(other.guardianPid_, -1);
  }
  return *this;
}

bool StagedFolder::Open(const std::string& folder, std::string* error) {
  Discard();
  std::string base = folder.empty() ? "./" : folder;
  if (base.back() != '/') base += '/';
  std::string tmpl = base + kStagePrefix + std::to_string(::getpid()) + "-XXXXXX";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  if (IoFaultHere(IoKind::kOpen) || ::mkdtemp(name.data()) == nullptr)
    return Fail(error, "cannot make a temporary folder in", base, errno);
  const std::string made = name.data();
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    const int err = errno;
    ::rmdir(made.c_str());
    return Fail(error, "cannot start the clean-up guardian for", made, err);
  }
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(fds[1]);
    RunGuardian(fds[0], made.c_str());
  }
  ::close(fds[0]);
  if (pid < 0) {
    const int err = errno;
    ::close(fds[1]);
    ::rmdir(made.c_str());
    return Fail(error, "cannot start the clean-up guardian for", made, err);
  }
  path_ = made + "/";
  guardianPipe_ = fds[1];
  guardianPid_ = pid;
  return true;
}

bool StagedFolder::CommitFiles(const std::vector<std::pair<std::string, std::string>>& files, std::string* error) {
  if (path_.empty()) return Fail(error, "nothing staged for", files.empty() ? path_ : files.front().second, EBADF);
  // Flush each staged file and tell the guardian what is about to move.
  std::string plan;
  for (const auto& [name, target] : files) {
    const std::string staged = path_ + name;
    if (IoFaultHere(IoKind::kOpen)) return Fail(error, "cannot open", staged, errno);
    const int fd = ::open(staged.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return Fail(error, "cannot open", staged, errno);
    struct stat st {};
    const bool synced = ::fstat(fd, &st) == 0 && !IoFaultHere(IoKind::kSync) && ::fsync(fd) == 0;
    const int err = errno;
    ::close(fd);
    if (!synced) return Fail(error, "cannot flush", staged, err);
    const PlanHead h{static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino),
                     static_cast<uint32_t>(name.size()), static_cast<uint32_t>(target.size())};
    plan += kPlan;
    plan.append(reinterpret_cast<const char*>(&h), sizeof h);
    plan += name;
    plan += '\0';
    plan += target;
    plan += '\0';
  }
  if (plan.size() >= kGuardianBuffer || !WriteAll(guardianPipe_, plan.data(), plan.size()))
    return Fail(error, "cannot reach the clean-up guardian for", path_, plan.size() >= kGuardianBuffer ? E2BIG : errno);
  // Exchange each file with its target (the old file moves into the stage,
  // from where a roll-back can bring it back), or rename it in when the
  // target does not exist.
  const int stageDir = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (stageDir < 0) return Fail(error, "cannot open", path_, errno);
  int err = 0;
  std::string failedTarget;
  for (const auto& [name, target] : files) {
    int rc = -1;
    if (IoFaultHere(IoKind::kRename)) {
      rc = -1;
    } else {
      rc = ::renameat2(stageDir, name.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE);
      if (rc != 0 && errno == ENOENT)
        rc = ::renameat2(stageDir, name.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE);
      else if (rc != 0 && errno == EINVAL)  // no exchange on this file system: no roll-back either
        rc = ::renameat(stageDir, name.c_str(), AT_FDCWD, target.c_str());
    }
    if (rc != 0) {
      err = errno;
      failedTarget = target;
      break;
    }
  }
  if (err != 0) {
    RollBack(stageDir, plan.data(), plan.size());
    ::close(stageDir);
    return Fail(error, "cannot rename over", failedTarget, err);
  }
  ::close(stageDir);
  WriteAll(guardianPipe_, &kCommitted, 1);
  for (const auto& [name, target] : files) {
    const int dir = ::open(FolderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
      ::fsync(dir);
      ::close(dir);
    }
  }
  return true;
}

void StagedFolder::Discard() {
  if (!path_.empty()) {
    std::string folder = path_;
    folder.pop_back();
    RemoveStageFolder(folder.c_str());
    path_.clear();
  }
  if (guardianPipe_ >= 0) ::close(guardianPipe_);
  guardianPipe_ = -1;
  if (guardianPid_ > 0) {
    int status = 0;
    while (::waitpid(guardianPid_, &status, 0) < 0 && errno == EINTR) {
    }
  }
  guardianPid_ = -1;
}

int SweepStaleStagedFolders(const std::string& folder) {
  std::string base = folder.empty() ? "./" : folder;
  if (base.back() != '/') base += '/';
  DIR* dir = ::opendir(base.c_str());
  if (dir == nullptr) return 0;
  std::vector<std::string> stale;
  const size_t prefix = sizeof kStagePrefix - 1;
  while (const dirent* e = ::readdir(dir)) {
    const std::string n = e->d_name;
    if (n.compare(0, prefix, kStagePrefix) != 0) continue;
    const long pid = std::strtol(n.c_str() + prefix, nullptr, 10);
    if (pid <= 0 || (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)) stale.push_back(base + n);
  }
  ::closedir(dir);
  for (const std::string& s : stale) RemoveStageFolder(s.c_str());
  return static_cast<int>(stale.size());
}

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa {
  }, sb{};
  if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
  return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

}  // namespace dravix::platform
