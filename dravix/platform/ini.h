// Private-profile (INI) files with the Windows semantics the library relies
// on. This is the only INI parser in the library.
//
// - Section and key names compare without regard to case.
// - Blanks around section names, key names and values in the file are
//   trimmed; the looked-up names are not, so a key asked for with a
//   trailing blank matches nothing.
// - A missing file, section or key gives the default text.
// - Results are cut to the caller's buffer (size - 1 characters + NUL).
// - Writes create the file, the section or the key as needed and keep
//   every other line of the file as it was.
#pragma once

#include "dravix/base/wintypes.h"

#include <string>

namespace dravix::platform {

// Copies the value (or `defaultText`, or "" when that is null) into
// `out[0..size-1]`; returns the number of characters copied, without the NUL.
DWORD GetPrivateProfileStringA(const char* section, const char* key, const char* defaultText, char* out,
                               DWORD size, const char* file);
// The value read as a decimal integer (leading digits, optional sign);
// `defaultValue` when absent; 0 when present but not a number.
UINT GetPrivateProfileIntA(const char* section, const char* key, int defaultValue, const char* file);
// Sets section/key = value (creating what is missing). A null key deletes
// the section; a null value deletes the key. Nonzero on success.
BOOL WritePrivateProfileStringA(const char* section, const char* key, const char* value, const char* file);

// Convenience over the above: the value as a std::string.
std::string ReadIniString(const std::string& file, const std::string& section, const std::string& key,
                          const std::string& defaultText);

}  // namespace dravix::platform
