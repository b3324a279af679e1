#include "dravix/platform/atomic_file.h"

#include "dravix/platform/staged_file.h"

namespace dravix::platform {

bool ReplaceFileAtomically(const std::string& path, const void* data, size_t size, unsigned mode, std::string* error) {
  StagedFile file;
  return file.Open(path, error) && file.Write(data, size, error) && file.Commit(mode, error);
}

}  // namespace dravix::platform
