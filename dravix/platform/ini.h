// Private-profile (INI) files with the Windows semantics the library relies
// on. This is the only INI parser in the library.
//
// - Section and key names compare without regard to case (ASCII).
// - Blanks around section names, key names and values in the file are
//   trimmed; the looked-up names are not, so a key asked for with a
//   trailing blank matches nothing.
// - A missing file, section or key gives the default text (with its
//   trailing spaces removed, as Windows does).
// - Results are cut to the caller's buffer (size - 1 characters + NUL).
// - Writes create the file, the section or the key as needed and keep
//   every other line of the file as it was. The file is replaced
//   atomically (temporary file + rename), so a reader never sees half a
//   write.
//
// File layout understood: "[name]" starts a section (up to the last ']' on
// the line); "key=value" lines belong to the section above them (the key is
// everything before the first '='); lines starting with ';' or '#' are comments;
// lines before the first section are ignored by lookups. Lines end with
// "\n" or "\r\n"; a rewritten file keeps the line ending it had ("\r\n" for
// a new file). Only the first section of a given name and the first key of
// a given name within it are seen. Files larger than 16 MiB are read only
// up to that size and are never rewritten.
#pragma once

#include "dravix/platform/wintypes.h"

#include <optional>
#include <string>

namespace dravix::platform {

// Copies the value (or `defaultText`, or "" when that is null) into
// `out[0..size-1]`; returns the number of characters copied, without the NUL.
// A null `section` lists every section name, a null `key` every key of the
// section: each name NUL-terminated, the list ended by a second NUL; a list
// that does not fit is cut to size - 2 characters plus two NULs, and
// size - 2 is returned.
DWORD GetPrivateProfileStringA(const char* section, const char* key, const char* defaultText, char* out, DWORD size,
                               const char* file);
// The value read as a decimal integer (leading digits, optional sign);
// `defaultValue` when absent or empty; 0 when present but not a number.
UINT GetPrivateProfileIntA(const char* section, const char* key, int defaultValue, const char* file);
// Sets section/key = value (creating what is missing). A null key deletes
// the section; a null value deletes the key. Names are matched and written
// trimmed. Nonzero on success; FALSE for a null section or file, a name or
// value holding a line break, or a file that cannot be read or replaced.
BOOL WritePrivateProfileStringA(const char* section, const char* key, const char* value, const char* file);

// Convenience over the above: the value as a std::string.
std::string ReadIniString(const std::string& file, const std::string& section, const std::string& key,
                          const std::string& defaultText);

// The value of section/key (whole, trimmed) when the file holds the key;
// nullopt when the file, the section or the key is missing. Same matching
// rules as GetPrivateProfileStringA.
std::optional<std::string> LookupIniValue(const std::string& file, const std::string& section, const std::string& key);

}  // namespace dravix::platform
