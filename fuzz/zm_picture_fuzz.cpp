// The picture at a moment: the record walk to the moment, then the payloads
// handed to libavcodec's MJPEG or H.263 decoder. Hostile records must give
// an error, never a crash or a hang.
#include "dravix/media/codec_log.h"
#include "dravix/media/picture_at.h"
#include "dravix/media/zm_format.h"
#include "fuzz/zm_fuzz_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static dravix::fuzz::RecordingFiles files;
  static const bool quiet = (dravix::media::SilenceCodecLog(), true);
  (void)quiet;
  if (!files.Write(data, size)) return 0;
  // The moment: half a second after the start time the header names.
  const size_t skip = size >= 2 && (data[0] | data[1] << 8) != 0xFFFF ? 2 + (data[0] | data[1] << 8) : 2;
  int64_t start = 0;
  if (skip + 20 <= size) start = dravix::media::LoadLE<int64_t>(data + skip + 12);
  dravix::media::PictureAtMoment found;
  std::string error;
  for (const int64_t ms : {0, 500, 5000}) {
    // Any start time the header holds: the moment wraps as the file's own times do.
    const auto at =
        static_cast<int64_t>(static_cast<uint64_t>(start) + static_cast<uint64_t>(ms * dravix::media::kTicksPerMs));
    dravix::media::FindPictureAt(files.recording.c_str(), at, true, &found, &error);
  }
  files.Remove();
  return 0;
}
