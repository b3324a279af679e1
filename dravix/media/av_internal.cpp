#include "dravix/media/av_internal.h"

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavutil/error.h>
}

#include <chrono>
#include <cstdio>
#include <mutex>

namespace dravix::media {

std::string AvError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

void RegisterAvDevices() {
  static std::once_flag once;
  std::call_once(once, [] { avdevice_register_all(); });
}

DecodingInput::~DecodingInput() {
  av_packet_free(&packet);
  av_frame_free(&frame);
  avcodec_free_context(&decoder);
  avformat_close_input(&input);
}

static int64_t SteadyMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void DecodingInput::Arm() { deadlineMs_ = stallMs > 0 ? SteadyMs() + stallMs : 0; }

int DecodingInput::Interrupt(void* self) {
  auto* d = static_cast<DecodingInput*>(self);
  if (d->abort != nullptr && d->abort->load()) {
    d->fired_ = 2;
    return 1;
  }
  const int64_t deadline = d->deadlineMs_;
  if (deadline != 0 && SteadyMs() > deadline) {
    d->fired_ = 1;
    return 1;
  }
  return 0;
}

std::string DecodingInput::Interrupted() const {
  if (fired_ == 2) return "stopped";
  if (fired_ == 1) {
    char text[64];
    std::snprintf(text, sizeof text, "nothing came for %.1f s", stallMs / 1000.0);
    return text;
  }
  return "";
}

bool DecodingInput::Open(const std::string& url, const std::string& format, AVMediaType type, int threads,
                         std::string* error) {
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return false;
  };
  RegisterAvDevices();
  const AVInputFormat* inputFormat = nullptr;
  if (!format.empty()) {
    inputFormat = av_find_input_format(format.c_str());
    if (inputFormat == nullptr) return fail("no input format named '" + format + "'");
  }
  input = avformat_alloc_context();
  if (input == nullptr) return fail("out of memory");
  input->interrupt_callback = {&DecodingInput::Interrupt, this};
  Arm();
  AVDictionary* options = nullptr;
  for (const auto& [key, value] : inputOptions) av_dict_set(&options, key.c_str(), value.c_str(), 0);
  int rc = avformat_open_input(&input, url.c_str(), inputFormat, &options);
  av_dict_free(&options);
  if (rc < 0) return fail("cannot open " + url + ": " + (fired_ != 0 ? Interrupted() : AvError(rc)));
  Arm();
  rc = avformat_find_stream_info(input, nullptr);
  if (rc < 0) return fail("cannot read the streams of " + url + ": " + AvError(rc));
  const AVCodec* codec = nullptr;
  rc = av_find_best_stream(input, type, -1, -1, &codec, 0);
  if (rc < 0) {
    return fail(url + " has no " + av_get_media_type_string(type) + " stream that can be decoded");
  }
  stream = rc;
  decoder = avcodec_alloc_context3(codec);
  frame = av_frame_alloc();
  packet = av_packet_alloc();
  if (decoder == nullptr || frame == nullptr || packet == nullptr) return fail("out of memory");
  rc = avcodec_parameters_to_context(decoder, input->streams[stream]->codecpar);
  if (rc < 0) return fail("cannot set up the decoder of " + url + ": " + AvError(rc));
  if (threads > 0) decoder->thread_count = threads;
  rc = avcodec_open2(decoder, codec, nullptr);
  if (rc < 0) return fail("cannot open the " + std::string(codec->name) + " decoder of " + url + ": " + AvError(rc));
  return true;
}

DecodingInput::Step DecodingInput::NextFrame(std::string* error) {
  if (ended_) return Step::kEnd;
  for (;;) {
    int rc = avcodec_receive_frame(decoder, frame);
    if (rc == 0) return Step::kFrame;
    if (rc == AVERROR_EOF) {
      ended_ = true;
      return Step::kEnd;
    }
    if (rc != AVERROR(EAGAIN)) {
      if (error) *error = "the decoder failed: " + AvError(rc);
      return Step::kError;
    }
    Arm();
    rc = av_read_frame(input, packet);
    if (rc == AVERROR_EOF) {
      if (draining_) {
        ended_ = true;
        return Step::kEnd;
      }
      draining_ = true;
      avcodec_send_packet(decoder, nullptr);
      continue;
    }
    if (rc < 0) {
      if (error) *error = "cannot read the source: " + (fired_ != 0 ? Interrupted() : AvError(rc));
      return Step::kError;
    }
    if (packet->stream_index == stream) rc = avcodec_send_packet(decoder, packet);
    av_packet_unref(packet);
    if (rc < 0 && rc != AVERROR(EAGAIN) && rc != AVERROR_INVALIDDATA) {
      if (error) *error = "the decoder refused a packet: " + AvError(rc);
      return Step::kError;
    }
  }
}

}  // namespace dravix::media
