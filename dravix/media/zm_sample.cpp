#include "dravix/media/zm_sample.h"

#include "dravix/media/zm_format.h"
#include "dravix/media/zm_writer.h"

#include <algorithm>
#include <vector>

namespace dravix::media {
namespace {

struct Rng {
  uint64_t s;
  uint64_t Next() {
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
  }
};

void Fill(std::vector<uint8_t>& buf, size_t n, Rng& rng) {
  buf.resize(n);
  size_t i = 0;
  for (; i + 8 <= n; i += 8) StoreLE<uint64_t>(buf.data() + i, rng.Next());
  for (; i < n; ++i) buf[i] = static_cast<uint8_t>(rng.Next());
}

}  // namespace

HRESULT WriteSampleRecording(const char* path, const ZMSampleOptions& o, ZMSampleStats* stats, std::string* error) {
  std::vector<ZMStreamFormat> streams{ZMStreamFormat::Video(o.codec, o.sizeCode, o.framesPerSecond)};
  if (o.audio) streams.push_back(ZMStreamFormat::Audio());
  ZMRecordingWriter w;
  HRESULT hr = o.staged ? w.CreateStaged(path, o.startTime, streams, error) : w.Create(path, o.startTime, streams);
  if (FAILED(hr)) return hr;
  w.SetLeadIn(o.leadIn);

  Rng rng{o.seed * 0x9E3779B97F4A7C15ull + 1};
  const uint32_t fps = std::max<uint32_t>(1, o.framesPerSecond);
  const uint32_t keyEvery = std::max<uint32_t>(1, o.keyInterval);
  const uint32_t mean = std::max<uint32_t>(64, o.meanFrameBytes);
  const uint64_t frameLimit = o.targetBytes ? UINT64_MAX : static_cast<uint64_t>(o.seconds) * fps;
  std::vector<uint8_t> payload;
  uint32_t nextAudio = 0;
  for (uint64_t frame = 0; frame < frameLimit; ++frame) {
    if (o.targetBytes && w.DataLength() >= o.targetBytes) break;
    const auto t = static_cast<uint32_t>(frame * 1000 / fps);
    // Audio up to the frame; audio of the frame's own millisecond after it,
    // so that a key frame is first in its millisecond and gets its entry.
    auto audioUntil = [&](bool inclusive) -> HRESULT {
      while (o.audio && (nextAudio < t || (inclusive && nextAudio == t))) {
        Fill(payload, 1600, rng);  // 100 ms of 8 kHz 16-bit mono
        const HRESULT r = w.AddRecord(1, nextAudio, payload.data(), 1600, false);
        if (FAILED(r)) return r;
        nextAudio += 100;
      }
      return S_OK;
    };
    if (FAILED(hr = audioUntil(false))) return hr;
    const bool key = frame % keyEvery == 0;
    uint32_t size = key ? mean * 3 : mean / 2 + static_cast<uint32_t>(rng.Next() % mean);
    size = std::clamp<uint32_t>(size, 8, kZMMaxPayload);
    Fill(payload, size, rng);
    if (o.codec == kCodecMJPEG) {
      payload[0] = 0xFF, payload[1] = 0xD8, payload[2] = 0xFF, payload[3] = 0xE0;
    } else {
      payload[0] = 0x00, payload[1] = 0x00, payload[2] = static_cast<uint8_t>(0x80 | (frame & 3));
    }
    if (FAILED(hr = w.AddRecord(0, t, payload.data(), size, key))) return hr;
    if (FAILED(hr = audioUntil(true))) return hr;
  }
  if (stats) {
    *stats = ZMSampleStats{w.RecordCount(), w.VideoRecordCount(), w.IndexEntryCount(), w.DataLength(), w.LastTime()};
  }
  if (!o.finish) {
    w.Abandon();
    return S_OK;
  }
  return w.Close(error);
}

}  // namespace dravix::media
