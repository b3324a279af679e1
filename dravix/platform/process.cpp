#include "dravix/platform/process.h"

#include <dirent.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace dravix::platform {
namespace {

std::string ExecutableName(const std::string& pid) {
  char buf[PATH_MAX];
  const std::string link = "/proc/" + pid + "/exe";
  const ssize_t n = readlink(link.c_str(), buf, sizeof buf - 1);
  if (n <= 0) return "unknown";
  std::string path(buf, static_cast<size_t>(n));
  // An executable replaced or removed since it started still names its process.
  static const std::string kDeleted = " (deleted)";
  if (path.size() > kDeleted.size() && path.compare(path.size() - kDeleted.size(), kDeleted.size(), kDeleted) == 0)
    path.resize(path.size() - kDeleted.size());
  const size_t slash = path.rfind('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  return name.empty() ? "unknown" : name;
}

}  // namespace

std::vector<ProcessEntry> ListProcesses() {
  std::vector<ProcessEntry> result;
  DIR* dir = opendir("/proc");
  if (dir == nullptr) return result;
  while (const dirent* entry = readdir(dir)) {
    const char* name = entry->d_name;
    char* end = nullptr;
    const long pid = std::strtol(name, &end, 10);
    if (end == name || *end != '\0' || pid <= 0) continue;
    result.push_back(ProcessEntry{static_cast<int>(pid), ExecutableName(name)});
  }
  closedir(dir);
  return result;
}

}  // namespace dravix::platform
