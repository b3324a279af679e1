// The moment-to-offset walk with its index jump and 256 KiB carry.
#include "dravix/media/zm_format.h"
#include "dravix/media/zme_to_zme.h"
#include "fuzz/zm_fuzz_files.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static dravix::fuzz::RecordingFiles files;
  if (!files.Write(data, size)) return 0;
  const char* path = files.recording.c_str();
  // Moments around the header's start and duration.
  int64_t start = 0, duration = 0;
  if (size >= 2 + 28) {
    const uint8_t* rec =
        data + 2 +
        (static_cast<size_t>(data[0] | (data[1] << 8)) == 0xFFFF ? 0 : static_cast<size_t>(data[0] | (data[1] << 8)));
    if (rec + 28 <= data + size) {
      std::memcpy(&start, rec + 12, 8);
      std::memcpy(&duration, rec + 20, 8);
    }
  }
  using dravix::media::WrapAdd;
  const int64_t moments[] = {
      start,    WrapAdd(start, duration / 2), WrapAdd(start, WrapAdd(duration, -1)), WrapAdd(start, -1), INT64_MAX,
      INT64_MIN};
  for (int64_t m : moments) {
    __int64 off = 0;
    ZMEtoZME::TimeToFilePos(path, &m, &off);
  }
  files.Remove();
  return 0;
}
