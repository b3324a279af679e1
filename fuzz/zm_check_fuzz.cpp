// The check's plan, the summary (with its index walk), and check and
// repair on a fresh copy of each input (the files are rewritten
// for every input, so repairs never accumulate).
#include "dravix/media/zm_check.h"
#include "dravix/media/zm_file.h"
#include "dravix/media/zm_summary.h"
#include "fuzz/zm_fuzz_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static dravix::fuzz::RecordingFiles files;
  if (!files.Write(data, size)) return 0;
  dravix::media::ZMCheckPlan plan;
  dravix::media::PlanZMCheck(files.recording.c_str(), &plan);
  dravix::media::ZMFileSummary summary;
  dravix::media::SummarizeRecording(files.recording.c_str(), &summary);
  __int64 end = 0;
  ZCheckZMFile(files.recording.c_str(), &end);
  FILETIME ft{};
  GetZMFileEndTime(files.recording.c_str(), &ft);
  files.Remove();
  return 0;
}
