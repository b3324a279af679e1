// The header reader and the readers that only need the header.
#include "dravix/media/zm_file.h"
#include "dravix/media/zm_header_reader.h"
#include "fuzz/zm_fuzz_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static dravix::fuzz::RecordingFiles files;
  if (!files.Write(data, size)) return 0;
  const char* path = files.recording.c_str();
  for (bool skip : {false, true}) {
    dravix::platform::File f;
    dravix::media::ZMHeaderReader reader;
    reader.Open(path, &f, skip);
  }
  __int64 length = 0;
  ZMergeAVI::GetZMFileTime(path, &length);
  SYSTEMTIME st{};
  int codec = -1, sizeCode = -1;
  GetVideoData(path, &st, &length, &codec, &sizeCode);
  FILETIME ft{};
  GetZMFileStartTime(path, &ft);
  files.Remove();
  return 0;
}
