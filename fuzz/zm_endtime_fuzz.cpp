// The end-time walk: index scan with its short-read rule, then the records.
#include "dravix/media/zm_file.h"
#include "fuzz/zm_fuzz_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static dravix::fuzz::RecordingFiles files;
  if (!files.Write(data, size)) return 0;
  FILETIME ft{};
  GetZMFileEndTime(files.recording.c_str(), &ft);
  files.Remove();
  return 0;
}
