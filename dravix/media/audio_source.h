// AudioSource: sound pulled from anything libavformat opens, as 16-bit PCM.
//
// Named like a FrameSource's URL ("clip.mkv", "rtsp://cam/1", or with the
// "lavfi" format a libavfilter graph such as "sine=frequency=440"). The
// first audio stream is decoded and converted with libswresample to
// signed 16-bit little-endian samples at the rate and channel count asked
// for (a recording's audio: 8000 Hz mono by default), interleaved.
//
// Not thread-safe; not copyable or movable.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace dravix::media {

struct AudioSourceOptions {
  std::string format;  // libavformat input format name; empty: found from the URL
  int sampleRate = 8000;
  int channels = 1;
};

class AudioSource {
 public:
  enum class Result { kSamples, kEnd, kError };

  AudioSource();
  ~AudioSource();
  AudioSource(const AudioSource&) = delete;
  AudioSource& operator=(const AudioSource&) = delete;

  bool Open(const std::string& url, const AudioSourceOptions& options, std::string* error);

  // Appends the next decoded samples (a whole number of sample frames,
  // channels x 2 bytes each) to `pcm`. kEnd at the end, kError with `error`.
  Result Next(std::vector<uint8_t>* pcm, std::string* error);

  // A sine tone as a "lavfi" URL.
  static std::string ToneUrl(int frequency, int sampleRate);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace dravix::media
