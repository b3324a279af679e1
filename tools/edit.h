// Reading and editing the files of the program folder without losing what
// is there: "missing" and "cannot be read" are told apart, edits hold the
// folder's edit lock from the read to the checked save, and a save that did
// not happen is a failure with its reason.
#pragma once

#include "dravix/platform/edit_lock.h"

#include <optional>
#include <string>
#include <string_view>

namespace dravix::cli {

// The bytes of `file`, or nullopt when it does not exist. Throws Failure
// naming the file and the reason when it exists but is not a regular file
// or cannot be read. Opens without blocking and writes nothing.
std::optional<std::string> ReadIfExists(const std::string& file);

// Replaces `file` atomically with `bytes`; throws Failure with the reason
// when the save did not happen.
void SaveOrFail(const std::string& file, std::string_view bytes, unsigned mode);

// Holds the edit lock of the folder of `file` for its lifetime (waiting for
// another editor first). Throws Failure when the lock cannot be taken.
class FileEdit {
 public:
  explicit FileEdit(std::string file);
  const std::string& file() const { return file_; }
  // ReadIfExists of the file, under the lock.
  std::optional<std::string> Read() const { return ReadIfExists(file_); }

 private:
  std::string file_;
  platform::EditLock lock_;
};

}  // namespace dravix::cli
