// File and disk helpers over dravix/platform/files.h. "Backslash" in the
// rules of these helpers means either separator, so "C:\Rec\a.dat" and
// "/srv/rec/a.dat" follow the same arithmetic.
#include "dravix/base/zfile.h"

#include "dravix/platform/files.h"
#include "dravix/platform/named_mutex.h"

#include <cstring>
#include <vector>

namespace fs = dravix::platform;

namespace {

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

// Position of the last separator, -1 when there is none.
int LastSeparator(const std::string& s) {
  const size_t p = s.find_last_of("\\/");
  return p == std::string::npos ? -1 : static_cast<int>(p);
}

}  // namespace

int FileExists(const char* path) { return path != nullptr && fs::PathExists(path) ? 1 : 0; }

__int64 FileSize(const char* path) { return path == nullptr ? -1 : fs::PathSize(path); }

std::string GetFilePATH(const char* path) {
  const std::string s = path == nullptr ? std::string() : std::string(path);
  const int sep = LastSeparator(s);
  return sep > 0 ? s.substr(0, static_cast<size_t>(sep)) : s;
}

std::string GetFileTitle(const char* path) {
  const std::string s = path == nullptr ? std::string() : std::string(path);
  const int sep = LastSeparator(s);
  const size_t dotPos = s.rfind('.');
  const int dot = dotPos == std::string::npos ? -1 : static_cast<int>(dotPos);
  // QUIRK(file-title-arithmetic): (separator - dot - 1), not a file title for ordinary paths.
  const int length = sep - dot - 1;
  const size_t start = static_cast<size_t>(sep + 1);
  if (length <= 0 || start >= s.size()) return std::string();
  return s.substr(start, static_cast<size_t>(length));
}

void GetFileTitle(const char* path, char* out) {
  if (path == nullptr || out == nullptr) return;
  const size_t n = std::strlen(path);
  // The first character is never looked at.
  for (size_t i = n; i-- > 1;) {
    if (IsSeparator(path[i])) {
      std::memcpy(out, path + i + 1, n - i);  // the remainder and its NUL
      return;
    }
  }
}

int IsMutexExisting(const char* name) { return name != nullptr && fs::NamedMutex::Exists(name) ? 1 : 0; }

int GetDiskSpace(const char* path, tagDiskSpace& out) {
  if (path == nullptr) return 0;
  std::string target = path;
  // A drive path ("C:\...") stands for its drive: its first two characters.
  // Native absolute paths and network paths are passed whole.
  if (!target.empty() && !IsSeparator(target[0])) target = target.substr(0, 2);
  if (fs::QueryDriveType(target) == fs::kDriveCdrom) return 0;
  fs::DiskSpace space{};
  if (!fs::QueryDiskSpace(target, &space)) return 0;
  out.freeBytesAvailable = space.freeToCaller;
  out.totalBytes = space.total;
  out.totalFreeBytes = space.free;
  return 1;
}

__int64 GetDiskFreeSpaceA(const char* path) {
  tagDiskSpace space{};
  if (GetDiskSpace(path, space) == 0) return -1;
  return static_cast<__int64>(space.totalFreeBytes);
}

int CheckDiskFreeSize(uint64_t need, char* path) {
  fs::DiskSpace space{};
  if (path == nullptr || !fs::QueryDiskSpace(path, &space)) return 0;
  return space.freeToCaller >= need ? 1 : 0;
}

int CheckDisk(char* path) {
  static const char kMessage[] = "Hard disk or network disk not exist !";
  const std::string s = path == nullptr ? std::string() : std::string(path);
  fs::DriveType type = fs::QueryDriveType(s);
  if (type == fs::kDriveNoRootDir && s.size() >= 4) {
    const size_t sep = s.find_first_of("\\/");
    if (sep != std::string::npos) type = fs::QueryDriveType(s.substr(0, sep + 1));
  }
  switch (type) {
    case fs::kDriveFixed:
    case fs::kDriveRemote:
    case fs::kDriveRamdisk:
      return 1;
    case fs::kDriveRemovable:
    case fs::kDriveCdrom:
      if (!fs::IsReadOnly(s)) return 1;
      break;
    default:
      break;
  }
  fs::OutputDebugText(kMessage);
  return 0;
}

int DelAllFile(std::string folder, std::string mask, int removeFolder) {
  std::vector<std::string> names;
  // No listing, or no match at all, ends the search with an error other
  // than "no more files".
  if (!fs::FindFiles(folder + mask, &names) || names.empty()) return 0;
  for (const std::string& name : names) fs::DeleteFileAt(folder + name);  // "." and ".." fail harmlessly
  if (removeFolder == 1) fs::RemoveEmptyFolder(folder);
  return 1;
}

int DelDirectory(std::string folder) {
  if (!fs::PathExists(folder)) return 1;
  std::vector<std::string> names;
  if (!fs::FindFiles(folder + "*.*", &names)) return 1;
  for (const std::string& name : names) {
    if (name == "." || name == "..") continue;
    const std::string entry = folder + name;
    fs::MakeWritable(entry);
    if (fs::IsRealDirectory(entry)) DelDirectory(entry + "/");
    fs::DeleteFileAt(entry);
  }
  fs::RemoveEmptyFolder(folder);
  return 1;
}
