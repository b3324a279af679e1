// FFmpeg plumbing shared by the media sources, the encoder, the picture
// decoder and the export. Internal to the library: FFmpeg's types stay out
// of the installed headers, so this header is not installed.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <atomic>
#include <string>
#include <utility>
#include <vector>

namespace dravix::media {

// FFmpeg's text for an error code.
std::string AvError(int code);

// Registers the capture devices (once per process), so a source can name
// them and the lavfi patterns.
void RegisterAvDevices();

// An opened input and the decoder of its best stream of one kind, and the
// loop that takes decoded frames out of it.
struct DecodingInput {
  AVFormatContext* input = nullptr;
  AVCodecContext* decoder = nullptr;
  AVFrame* frame = nullptr;
  AVPacket* packet = nullptr;
  int stream = -1;

  DecodingInput() = default;
  DecodingInput(const DecodingInput&) = delete;
  DecodingInput& operator=(const DecodingInput&) = delete;
  ~DecodingInput();

  // Opens `url` (through the input format named `format`, when not empty)
  // and the decoder of its best stream of `type`; `threads` 0 lets the
  // decoder choose. False with the reason in `error`.
  bool Open(const std::string& url, const std::string& format, AVMediaType type, int threads, std::string* error);

  // A watchdog on the input: opening it and every read are abandoned
  // (they fail) once `stallMs` pass without an answer, or as soon as
  // `*abort` turns true. Set before Open(); 0 and null: wait for ever.
  int stallMs = 0;
  const std::atomic<bool>* abort = nullptr;
  // Options of the input format (such as v4l2's "channel"), set before Open().
  std::vector<std::pair<std::string, std::string>> inputOptions;
  // Starts the stall clock again; called before each read.
  void Arm();
  // Whether the last failure came from the watchdog, and why.
  std::string Interrupted() const;

  enum class Step { kFrame, kEnd, kError };
  // The next decoded frame, in `frame` (the caller unrefs it). Packets of
  // other streams are skipped, packets the decoder finds damaged are
  // dropped, and the decoder is drained at the end of the input.
  Step NextFrame(std::string* error);

 private:
  static int Interrupt(void* self);
  bool draining_ = false;
  bool ended_ = false;
  std::atomic<int64_t> deadlineMs_{0};  // steady-clock ms; 0: none
  std::atomic<int> fired_{0};           // 1 stalled, 2 aborted
};

}  // namespace dravix::media
