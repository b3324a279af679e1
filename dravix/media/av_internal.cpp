#include "dravix/media/av_internal.h"

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavutil/error.h>
}

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
  int rc = avformat_open_input(&input, url.c_str(), inputFormat, nullptr);
  if (rc < 0) return fail("cannot open " + url + ": " + AvError(rc));
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
      if (error) *error = "cannot read the source: " + AvError(rc);
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
