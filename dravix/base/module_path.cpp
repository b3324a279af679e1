// The program folder: every file the library names is this folder followed
// directly by a file name.
#include "dravix/platform/module_path.h"
#include "dravix/base/zfile.h"

#include <cstdlib>
#include <mutex>

namespace {

std::mutex g_mutex;
std::string g_folder;  // set by SetModulePath; empty = default

std::string WithSeparator(std::string folder) {
  if (!folder.empty() && folder.back() != '/' && folder.back() != '\\') folder += '/';
  return folder;
}

}  // namespace

std::string GetModulePath() {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_folder.empty()) return g_folder;
  }
  if (const char* home = std::getenv("DRAVIX_HOME"); home != nullptr && *home != '\0') return WithSeparator(home);
  return dravix::platform::ExecutableFolder();
}

void SetModulePath(const char* folder) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_folder = folder == nullptr ? std::string() : WithSeparator(folder);
}
