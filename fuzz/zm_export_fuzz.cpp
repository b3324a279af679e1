// Export to Matroska of hostile recordings: the whole file, then a range
// that starts inside it. The output goes beside the input and is removed.
#include "dravix/media/zm_export.h"
#include "dravix/media/zm_file.h"
#include "fuzz/zm_fuzz_files.h"

#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static dravix::fuzz::RecordingFiles files;
  if (!files.Write(data, size)) return 0;
  const std::string out = files.recording + ".mkv";
  dravix::media::ZMExportRequest req;
  req.sources = {files.recording};
  req.output = out;
  req.texts = {"fuzz"};
  dravix::media::ExportRecordings(req);
  FILETIME ft{};
  if (SUCCEEDED(GetZMFileStartTime(files.recording.c_str(), &ft))) {
    req.hasRange = true;
    req.from = FileTimeToInt64(ft) + 1000000;
    req.to = req.from + 20000000;
    dravix::media::ExportRecordings(req);
  }
  std::remove(out.c_str());
  files.Remove();
  return 0;
}
