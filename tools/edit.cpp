#include "tools/edit.h"

#include "dravix/platform/atomic_file.h"
#include "dravix/platform/file_io.h"
#include "tools/command.h"

#include <utility>

namespace dravix::cli {

std::optional<std::string> ReadIfExists(const std::string& file) {
  std::string why;
  bool missing = false;
  if (!platform::CheckRegularFile(file, &why, &missing)) {
    if (missing) return std::nullopt;
    throw Failure("cannot read " + file + ": " + why);
  }
  platform::File f;
  if (!f.OpenRead(file.c_str())) {
    throw Failure("cannot read " + file + ": " + platform::FileErrorText(platform::LastFileError()));
  }
  std::string bytes;
  char buffer[65536];
  for (;;) {
    const int64_t n = f.Read(buffer, sizeof buffer);
    if (n < 0) throw Failure("cannot read " + file + ": " + platform::FileErrorText(platform::LastFileError()));
    if (n == 0) break;
    bytes.append(buffer, static_cast<size_t>(n));
  }
  return bytes;
}

void SaveOrFail(const std::string& file, std::string_view bytes, unsigned mode) {
  std::string error;
  if (!platform::ReplaceFileAtomically(file, bytes, mode, &error)) throw Failure("not saved: " + error);
}

FileEdit::FileEdit(std::string file) : file_(std::move(file)) {
  std::string error;
  if (!lock_.Acquire(file_, &error)) throw Failure(error);
}

}  // namespace dravix::cli
