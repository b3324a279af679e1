// The settings of the option document by path, for tools: every setting of
// a record listed with its element path and value, and one setting changed
// by path. Paths are the document's own element paths below the root, with
// '/' between steps ("Camera/Camera3/DsRecord/FrameRate"); a leading
// "ZeploXML/" and backslashes are accepted too.
#pragma once

#include "dravix/config/dvroption.h"
#include "dravix/config/option_visitor.h"

#include <string>
#include <string_view>
#include <vector>

namespace dravix::config {

enum class OptionKind { kInt, kSwitch, kFloat, kText };

struct OptionKey {
  std::string path;   // "General/SiteName"
  std::string value;  // as the document writes it
  OptionKind kind;
  size_t maxLength;  // for texts: the longest text the field holds
};

// Every setting of the chosen sections, in document order.
std::vector<OptionKey> ListOptionKeys(tagDSZEPLODVROPTION& option, unsigned sections = kAllSections);

// '\' to '/', without a leading "ZeploXML/" or '/' and without a trailing '/'.
std::string NormalizeOptionPath(std::string_view path);

enum class SetKeyResult { kSet, kUnknownPath, kBadValue };

// Sets the setting at `path` (compared without regard to case) from its
// text form: an integer in the 32-bit range, a switch 0 or 1, a decimal
// number, or a text that fits its field. `error` says what was wrong.
SetKeyResult SetOptionKey(tagDSZEPLODVROPTION& option, std::string_view path, std::string_view value,
                          std::string* error);

}  // namespace dravix::config
