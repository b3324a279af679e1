#include "dravix/media/pattern_recording.h"

#include "dravix/media/audio_source.h"
#include "dravix/media/frame_code.h"
#include "dravix/media/frame_source.h"
#include "dravix/media/video_encoder.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_writer.h"

#include <vector>

namespace dravix::media {
namespace {

constexpr uint32_t kAudioBlockMs = 100;
constexpr size_t kAudioBlockBytes = 1600;  // 100 ms of 8 kHz 16-bit mono

// Seconds since 1970-01-01 00:00 of a FILETIME on the local wall clock.
uint32_t WallSeconds(int64_t fileTime) {
  constexpr int64_t kUnixEpoch = 116444736000000000;  // 1970-01-01 as a FILETIME
  return static_cast<uint32_t>((fileTime - kUnixEpoch) / 10000000);
}

class Job {
 public:
  Job(const char* path, const PatternRecordingOptions& o, std::string* error) : path_(path), o_(o), error_(*error) {}

  bool Run(PatternRecordingStats* stats) {
    if (!Open()) return false;
    const uint64_t frames = static_cast<uint64_t>(o_.seconds) * o_.framesPerSecond;
    Picture picture;
    std::vector<EncodedPacket> packets;
    for (uint64_t i = 0; i < frames; ++i) {
      const FrameSource::Result r = pattern_.Next(&picture, &error_);
      if (r != FrameSource::Result::kPicture)
        return Fail("the test pattern stopped: " + (error_.empty() ? std::string("no more pictures") : error_));
      const auto t = static_cast<uint32_t>(i * 1000 / o_.framesPerSecond);
      picture.timeMs = t;
      const FrameCode code{static_cast<uint32_t>(i), WallSeconds(o_.startTime + static_cast<int64_t>(t) * kTicksPerMs)};
      DrawFrameCode(picture.y.data(), picture.width, picture.width, picture.height, code);
      packets.clear();
      if (!encoder_.Encode(picture, &packets, &error_) || !Add(packets)) return false;
      if (o_.progress && !o_.progress(i + 1, frames)) {
        if (stats) stats->stopped = true;
        return Fail("stopped before the end");
      }
    }
    packets.clear();
    if (!encoder_.Flush(&packets, &error_) || !Add(packets)) return false;
    if (stats) {
      *stats = PatternRecordingStats{writer_.RecordCount(), writer_.VideoRecordCount(), writer_.IndexEntryCount(),
                                     writer_.DataLength(), false};
    }
    return SUCCEEDED(writer_.Close(&error_));
  }

 private:
  bool Fail(const std::string& why) {
    error_ = why;
    return false;
  }

  bool Open() {
    if (o_.seconds == 0) return Fail("a recording of 0 seconds holds no record");
    if (o_.framesPerSecond == 0 || o_.framesPerSecond > 1000) return Fail("a frame rate of 1 to 1000 is needed");
    if (o_.width < kFrameCodeWidth || o_.height < kFrameCodeHeight)
      return Fail("pictures smaller than the frame code (128x32) cannot carry it");
    FrameSourceOptions so;
    so.format = "lavfi";
    so.fullRange = VideoEncoder::FullRangeFor(o_.codec);
    if (!pattern_.Open(FrameSource::TestPatternUrl(o_.width, o_.height, o_.framesPerSecond), so, &error_))
      return Fail("cannot make the test pattern: " + error_);
    VideoEncoderSettings es;
    es.codec = o_.codec;
    es.width = o_.width;
    es.height = o_.height;
    es.framesPerSecond = o_.framesPerSecond;
    es.mjpegQuality = o_.mjpegQuality;
    es.zmediaQuality = o_.zmediaQuality;
    if (!encoder_.Open(es, &error_)) return false;
    if (o_.audio) {
      AudioSourceOptions ao;
      ao.format = "lavfi";
      if (!tone_.Open(AudioSource::ToneUrl(440, ao.sampleRate), ao, &error_))
        return Fail("cannot make the test tone: " + error_);
    }
    std::vector<ZMStreamFormat> streams{ZMStreamFormat::VideoOfSize(o_.codec, o_.width, o_.height, o_.framesPerSecond)};
    if (o_.audio) streams.push_back(ZMStreamFormat::Audio());
    return SUCCEEDED(writer_.CreateStaged(path_, o_.startTime, streams, &error_));
  }

  // Audio blocks before `t` (with `inclusive`, also the block at `t`).
  bool AudioUntil(uint32_t t, bool inclusive) {
    while (o_.audio && (nextAudio_ < t || (inclusive && nextAudio_ == t))) {
      while (pcm_.size() < kAudioBlockBytes) {
        const AudioSource::Result r = tone_.Next(&pcm_, &error_);
        if (r == AudioSource::Result::kError) return Fail("the test tone failed: " + error_);
        if (r == AudioSource::Result::kEnd) return Fail("the test tone ended early");
      }
      if (FAILED(writer_.AddRecord(1, nextAudio_, pcm_.data(), kAudioBlockBytes, false)))
        return Fail("cannot add an audio record");
      pcm_.erase(pcm_.begin(), pcm_.begin() + kAudioBlockBytes);
      nextAudio_ += kAudioBlockMs;
    }
    return true;
  }

  // A key picture goes first in its millisecond, so that it gets the index
  // entry; the audio of that millisecond follows it.
  bool Add(const std::vector<EncodedPacket>& packets) {
    for (const EncodedPacket& p : packets) {
      const auto t = static_cast<uint32_t>(p.timeMs);
      if (!AudioUntil(t, false)) return false;
      if (FAILED(writer_.AddRecord(0, t, p.data.data(), static_cast<uint32_t>(p.data.size()), p.key)))
        return Fail("the encoder gave a record the recording cannot hold (" + std::to_string(p.data.size()) +
                    " bytes at " + std::to_string(t) + " ms)");
      if (!AudioUntil(t, true)) return false;
    }
    return true;
  }

  const char* path_;
  const PatternRecordingOptions& o_;
  std::string& error_;
  FrameSource pattern_;
  VideoEncoder encoder_;
  AudioSource tone_;
  ZMRecordingWriter writer_;
  std::vector<uint8_t> pcm_;
  uint32_t nextAudio_ = 0;
};

}  // namespace

bool WritePatternRecording(const char* path, const PatternRecordingOptions& options, PatternRecordingStats* stats,
                           std::string* error) {
  std::string local;
  std::string& why = error ? *error : local;
  why.clear();
  if (path == nullptr) {
    why = "no path";
    return false;
  }
  Job job(path, options, &why);
  return job.Run(stats);
}

}  // namespace dravix::media
