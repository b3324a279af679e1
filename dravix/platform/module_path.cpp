#include "dravix/platform/module_path.h"

#include <unistd.h>

#include <climits>

namespace dravix::platform {

std::string ExecutableFolder() {
  char buf[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return "./";
  std::string path(buf, static_cast<size_t>(n));
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

}  // namespace dravix::platform
