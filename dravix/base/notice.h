// Notices for the general log from floors below it. The option document
// and other low-level code must say when they replace a file they could
// not read; the log lives above them, so it installs itself here as the
// sink when it is linked in. Without a sink a notice goes nowhere.
#pragma once

#include <string>

namespace dravix::base {

using NoticeSink = void (*)(const std::string& line);

// Sets where notices go (the general log sets itself); nullptr drops them.
void SetNoticeSink(NoticeSink sink);
// Hands a line (with its own line end) to the sink, if any.
void Notice(const std::string& line);

}  // namespace dravix::base
