// Where the running program lives: the folder of /proc/self/exe.
#pragma once

#include <string>

namespace dravix::platform {

// The folder of the running executable with a trailing '/', or "./" when
// /proc/self/exe cannot be read.
std::string ExecutableFolder();

}  // namespace dravix::platform
