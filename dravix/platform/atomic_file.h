// Replacing a whole file so that a crash (or a kill) at any moment leaves
// either the old content or the new one, never a torn mix.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace dravix::platform {

// Writes `size` bytes to a new temporary file in the folder of `path`,
// sets its permission bits to `mode` (not masked by the umask), flushes it
// to the disk and renames it over `path`. After a crash or a power loss the
// file holds the old bytes or the new ones (the rename itself may be lost
// with the power, the content never is). The temporary file has no name
// while it is written (where the file system allows), so a process killed
// mid-write leaves no stray file in the folder. On failure the temporary
// file is removed, `path` is untouched, `error` (when given) says what
// failed and where, and false is returned.
bool ReplaceFileAtomically(const std::string& path, const void* data, size_t size, unsigned mode = 0644,
                           std::string* error = nullptr);

inline bool ReplaceFileAtomically(const std::string& path, std::string_view bytes, unsigned mode = 0644,
                                  std::string* error = nullptr) {
  return ReplaceFileAtomically(path, bytes.data(), bytes.size(), mode, error);
}

}  // namespace dravix::platform
