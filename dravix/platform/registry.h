// The registry values the library writes, kept in a file-backed key store:
// an INI file whose sections are key paths ("HKEY_CLASSES_ROOT\CLSID\...")
// and whose keys are value names. Any process can read it; writes replace
// the file atomically.
#pragma once

#include "dravix/platform/wintypes.h"

#include <optional>
#include <string>

namespace dravix::platform {

inline constexpr const char* kRegistryFileName = "Registry.ini";

// Stores `value` as a DWORD (decimal text) under root\path, name `name`.
bool RegistrySetDword(const std::string& storeFile, const std::string& root, const std::string& path,
                      const std::string& name, DWORD value);
// The DWORD stored there, or nullopt when absent or not a number.
std::optional<DWORD> RegistryGetDword(const std::string& storeFile, const std::string& root, const std::string& path,
                                      const std::string& name);

}  // namespace dravix::platform
