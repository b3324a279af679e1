// Reading and writing times on the command line.
#pragma once

#include "dravix/base/wintypes.h"

#include <string>

namespace dravix::cli {

// "YYYY-MM-DD hh:mm:ss[.fff]" or "YYYY-MM-DDThh:mm:ss[.fff]" (local time).
// Throws UsageError naming `what` and the text when it is not a valid time.
SYSTEMTIME ParseTimeArg(const std::string& text, const std::string& what);
// "YYYY-MM-DD hh:mm:ss.fff"
std::string FormatTimeArg(const SYSTEMTIME& t, bool withMilliseconds = true);

}  // namespace dravix::cli
