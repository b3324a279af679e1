#include "dravix/platform/registry.h"

#include "dravix/platform/ini.h"

#include <cerrno>
#include <cstdlib>
#include <string>

namespace dravix::platform {

bool RegistrySetDword(const std::string& storeFile, const std::string& root, const std::string& path,
                      const std::string& name, DWORD value) {
  const std::string section = root + "\\" + path;
  return WritePrivateProfileStringA(section.c_str(), name.c_str(), std::to_string(value).c_str(), storeFile.c_str()) !=
         0;
}

std::optional<DWORD> RegistryGetDword(const std::string& storeFile, const std::string& root, const std::string& path,
                                      const std::string& name) {
  const auto text = LookupIniValue(storeFile, root + "\\" + path, name);
  if (!text || text->empty()) return std::nullopt;
  errno = 0;
  char* end = nullptr;
  const unsigned long long v = std::strtoull(text->c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || v > 0xFFFFFFFFull) return std::nullopt;
  return static_cast<DWORD>(v);
}

}  // namespace dravix::platform
