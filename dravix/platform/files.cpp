#include "dravix/platform/files.h"

#include "dravix/platform/fault_injection.h"
#include "dravix/platform/file_io.h"
#include "dravix/platform/staged_file.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fcntl.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace dravix::platform {
namespace {

size_t LastSeparator(const std::string& path) { return path.find_last_of("/\\"); }

// The nearest existing ancestor of `path` (the path itself when it exists).
std::string ExistingAncestor(std::string path) {
  while (!path.empty()) {
    if (PathExists(path)) return path;
    while (!path.empty() && (path.back() == '/' || path.back() == '\\')) path.pop_back();
    const size_t sep = LastSeparator(path);
    if (sep == std::string::npos) return ".";
    path.resize(sep == 0 ? 1 : sep);
  }
  return ".";
}

bool MatchFrom(const char* m, const char* n) {
  for (;;) {
    if (*m == '\0') return *n == '\0';
    if (*m == '*') {
      while (*m == '*') ++m;
      if (*m == '\0') return true;
      for (const char* p = n;; ++p) {
        if (MatchFrom(m, p)) return true;
        if (*p == '\0') return false;
      }
    }
    // A trailing ".*" also matches the end of a name with no extension.
    if (*m == '.' && m[1] == '*' && m[2] == '\0' && *n == '\0') return true;
    if (*n == '\0') return false;
    if (*m != '?' && std::tolower(static_cast<unsigned char>(*m)) != std::tolower(static_cast<unsigned char>(*n)))
      return false;
    ++m;
    ++n;
  }
}

bool IsRemovableDevice(dev_t dev) {
  char path[128];
  std::snprintf(path, sizeof path, "/sys/dev/block/%u:%u/removable", major(dev), minor(dev));
  std::ifstream in(path);
  if (!in) {  // a partition: the flag is on its parent disk
    std::snprintf(path, sizeof path, "/sys/dev/block/%u:%u/../removable", major(dev), minor(dev));
    in.open(path);
  }
  int flag = 0;
  return in >> flag && flag == 1;
}

}  // namespace

bool PathExists(const std::string& path) {
  struct stat st;
  return !path.empty() && stat(path.c_str(), &st) == 0;
}

int64_t PathSize(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return -1;
  return static_cast<int64_t>(st.st_size);
}

bool IsRealDirectory(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool IsReadOnly(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return false;
  if ((st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) return true;
  struct statvfs vfs;
  return statvfs(path.c_str(), &vfs) == 0 && (vfs.f_flag & ST_RDONLY) != 0;
}

// QUIRK(star-dot-star): "*.*" matches every name, with or without a dot, and
// a trailing ".*" matches a name without one.
bool MatchWildcard(const std::string& mask, const std::string& name) {
  if (mask == "*.*" || mask == "*") return true;
  return MatchFrom(mask.c_str(), name.c_str());
}

bool FindFiles(const std::string& pattern, std::vector<std::string>* names) {
  const size_t sep = LastSeparator(pattern);
  const std::string folder = sep == std::string::npos ? "." : pattern.substr(0, sep == 0 ? 1 : sep);
  const std::string mask = sep == std::string::npos ? pattern : pattern.substr(sep + 1);
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) {
    SetLastFileError(errno);
    return false;
  }
  names->clear();
  while (const dirent* entry = readdir(dir)) {
    if (MatchWildcard(mask, entry->d_name)) names->emplace_back(entry->d_name);
  }
  closedir(dir);
  return true;
}

bool DeleteFileAt(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) {
    SetLastFileError(errno);
    return false;
  }
  if (S_ISDIR(st.st_mode)) {
    SetLastFileError(EISDIR);
    return false;
  }
  if (unlink(path.c_str()) != 0) {
    SetLastFileError(errno);
    return false;
  }
  return true;
}

bool RemoveEmptyFolder(const std::string& path) {
  if (rmdir(path.c_str()) != 0) {
    SetLastFileError(errno);
    return false;
  }
  return true;
}

bool MoveFileReplacing(const std::string& from, const std::string& to, std::string* error) {
  if (!IoFaultHere(IoKind::kRename) && std::rename(from.c_str(), to.c_str()) == 0) return true;
  if (errno != EXDEV) {
    SetLastFileError(errno);
    if (error != nullptr) *error = "cannot move " + from + " to " + to + ": " + std::strerror(errno);
    return false;
  }
  const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (in < 0) {
    if (error != nullptr) *error = "cannot read " + from + ": " + std::strerror(errno);
    return false;
  }
  StagedFile out;
  bool ok = out.Open(to, error);
  char buf[1 << 16];
  while (ok) {
    const ssize_t n = read(in, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      if (error != nullptr) *error = "cannot read " + from + ": " + std::strerror(errno);
      ok = false;
    } else if (n == 0) {
      break;
    } else {
      ok = out.Write(buf, static_cast<size_t>(n), error);
    }
  }
  struct stat st {};
  const unsigned mode = fstat(in, &st) == 0 ? (st.st_mode & 07777) : 0644;
  close(in);
  if (!ok || !out.Commit(mode, error)) return false;
  // The copy is in place; the source must not stay behind as a second copy.
  if (unlink(from.c_str()) != 0) {
    const int fd = open(from.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0) close(fd);
  }
  return true;
}

void MakeWritable(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) == 0 && !S_ISLNK(st.st_mode)) chmod(path.c_str(), (st.st_mode & 07777) | S_IWUSR);
}

bool QueryDiskSpace(const std::string& path, DiskSpace* out) {
  struct statvfs vfs;
  if (statvfs(ExistingAncestor(path).c_str(), &vfs) != 0) return false;
  out->freeToCaller = static_cast<uint64_t>(vfs.f_bavail) * vfs.f_frsize;
  out->total = static_cast<uint64_t>(vfs.f_blocks) * vfs.f_frsize;
  out->free = static_cast<uint64_t>(vfs.f_bfree) * vfs.f_frsize;
  return true;
}

DriveType QueryDriveType(const std::string& path) {
  if (!PathExists(path)) return kDriveNoRootDir;
  struct statfs fs;
  if (statfs(path.c_str(), &fs) != 0) return kDriveUnknown;
  switch (static_cast<unsigned long>(fs.f_type)) {
    case 0x9660:      // ISO 9660
    case 0x15013346:  // UDF
      return kDriveCdrom;
    case 0x6969:      // NFS
    case 0xFF534D42:  // CIFS
    case 0xFE534D42:  // SMB2
    case 0x517B:      // SMB
    case 0x65735546:  // FUSE (sshfs and the like)
      return kDriveRemote;
    case 0x01021994:  // tmpfs
    case 0x858458F6:  // ramfs
      return kDriveRamdisk;
    default:
      break;
  }
  struct stat st;
  if (stat(path.c_str(), &st) == 0 && IsRemovableDevice(st.st_dev)) return kDriveRemovable;
  return kDriveFixed;
}

void OutputDebugText(const char* text) {
  const char* flag = std::getenv("DRAVIX_DEBUG");
  if (flag == nullptr || *flag == '\0' || text == nullptr) return;
  std::fputs(text, stderr);
  std::fputc('\n', stderr);
}

}  // namespace dravix::platform
