// Positioned writes and the size of an open descriptor that is not a File
// (for example a StagedFile's): what a muxer's output callbacks need.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace dravix::platform {

// Writes all `size` bytes at `offset`, looping over short writes and EINTR.
// False with `error` (the OS reason) when a write fails.
bool PWriteFd(int fd, const void* data, size_t size, int64_t offset, std::string* error = nullptr);
// The descriptor's file size, or -1.
int64_t FdSize(int fd);
// The path under which this process can open the descriptor again.
std::string FdPath(int fd);

}  // namespace dravix::platform
