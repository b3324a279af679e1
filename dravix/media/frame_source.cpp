#include "dravix/media/frame_source.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <mutex>

namespace dravix::media {
namespace {

std::string AvError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

void RegisterDevices() {
  static std::once_flag once;
  std::call_once(once, [] { avdevice_register_all(); });
}

bool IsJpegFormat(int format) {
  return format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_YUVJ422P || format == AV_PIX_FMT_YUVJ444P ||
         format == AV_PIX_FMT_YUVJ440P || format == AV_PIX_FMT_YUVJ411P;
}

// The J formats are the plain ones with full range, said by the format.
AVPixelFormat PlainFormat(int format) {
  switch (format) {
    case AV_PIX_FMT_YUVJ420P:
      return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
      return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
      return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
      return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
      return AV_PIX_FMT_YUV411P;
    default:
      return static_cast<AVPixelFormat>(format);
  }
}

}  // namespace

struct FrameSource::Impl {
  AVFormatContext* input = nullptr;
  AVCodecContext* decoder = nullptr;
  AVFrame* frame = nullptr;
  AVPacket* packet = nullptr;
  SwsContext* sws = nullptr;
  int stream = -1;
  bool draining = false;
  bool ended = false;
  FrameSourceOptions options;
  int64_t firstTs = AV_NOPTS_VALUE;
  int64_t pictures = 0;

  ~Impl() {
    sws_freeContext(sws);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&decoder);
    avformat_close_input(&input);
  }

  SwsContext* Converter(int srcW, int srcH, int srcFormat, bool srcFull, int dstW, int dstH, AVPixelFormat dstFormat,
                        bool dstFull) {
    sws = sws_getCachedContext(sws, srcW, srcH, PlainFormat(srcFormat), dstW, dstH, dstFormat, SWS_BILINEAR, nullptr,
                               nullptr, nullptr);
    if (sws == nullptr) return nullptr;
    int* inv = nullptr;
    int* table = nullptr;
    int srcRange = 0, dstRange = 0, brightness = 0, contrast = 0, saturation = 0;
    if (sws_getColorspaceDetails(sws, &inv, &srcRange, &table, &dstRange, &brightness, &contrast, &saturation) >= 0)
      sws_setColorspaceDetails(sws, inv, srcFull ? 1 : 0, table, dstFull ? 1 : 0, brightness, contrast, saturation);
    return sws;
  }

  bool Convert(Picture* out, std::string* error) {
    const int w = frame->width & ~1;
    const int h = frame->height & ~1;
    if (w <= 0 || h <= 0) {
      if (error) *error = "the source gave an empty picture";
      return false;
    }
    const bool srcFull = frame->color_range == AVCOL_RANGE_JPEG || IsJpegFormat(frame->format);
    out->Resize(w, h);
    if (!Converter(w, h, frame->format, srcFull, w, h, AV_PIX_FMT_YUV420P, options.fullRange)) {
      if (error) *error = std::string("cannot convert pictures of ") + av_get_pix_fmt_name(PlainFormat(frame->format));
      return false;
    }
    uint8_t* dst[4] = {out->y.data(), out->u.data(), out->v.data(), nullptr};
    const int strides[4] = {w, w / 2, w / 2, 0};
    sws_scale(sws, frame->data, frame->linesize, 0, h, dst, strides);
    out->fullRange = options.fullRange;
    const AVRational tb = input->streams[stream]->time_base;
    int64_t ts = frame->best_effort_timestamp;
    if (ts == AV_NOPTS_VALUE) ts = frame->pts;
    if (ts != AV_NOPTS_VALUE && firstTs == AV_NOPTS_VALUE) firstTs = ts;
    if (ts != AV_NOPTS_VALUE && tb.num > 0 && tb.den > 0) {
      out->timeMs = av_rescale_q(ts - firstTs, tb, AVRational{1, 1000});
    } else {
      const AVRational rate = input->streams[stream]->avg_frame_rate;
      out->timeMs = rate.num > 0 ? pictures * 1000 * rate.den / rate.num : 0;
    }
    ++pictures;
    return true;
  }
};

FrameSource::FrameSource() = default;
FrameSource::~FrameSource() = default;

std::string FrameSource::TestPatternUrl(int width, int height, unsigned framesPerSecond) {
  return "testsrc2=size=" + std::to_string(width) + "x" + std::to_string(height) +
         ":rate=" + std::to_string(framesPerSecond);
}

bool FrameSource::Open(const std::string& url, const FrameSourceOptions& options, std::string* error) {
  impl_.reset();
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return false;
  };
  RegisterDevices();
  auto impl = std::make_unique<Impl>();
  impl->options = options;
  const AVInputFormat* format = nullptr;
  if (!options.format.empty()) {
    format = av_find_input_format(options.format.c_str());
    if (format == nullptr) return fail("no input format named '" + options.format + "'");
  }
  int rc = avformat_open_input(&impl->input, url.c_str(), format, nullptr);
  if (rc < 0) return fail("cannot open " + url + ": " + AvError(rc));
  rc = avformat_find_stream_info(impl->input, nullptr);
  if (rc < 0) return fail("cannot read the streams of " + url + ": " + AvError(rc));
  const AVCodec* codec = nullptr;
  rc = av_find_best_stream(impl->input, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (rc < 0) return fail(url + " has no video stream that can be decoded");
  impl->stream = rc;
  impl->decoder = avcodec_alloc_context3(codec);
  impl->frame = av_frame_alloc();
  impl->packet = av_packet_alloc();
  if (impl->decoder == nullptr || impl->frame == nullptr || impl->packet == nullptr) return fail("out of memory");
  rc = avcodec_parameters_to_context(impl->decoder, impl->input->streams[rc]->codecpar);
  if (rc < 0) return fail("cannot set up the decoder of " + url + ": " + AvError(rc));
  impl->decoder->thread_count = 1;
  rc = avcodec_open2(impl->decoder, codec, nullptr);
  if (rc < 0) return fail("cannot open the " + std::string(codec->name) + " decoder of " + url + ": " + AvError(rc));
  impl_ = std::move(impl);
  return true;
}

FrameSource::Result FrameSource::Next(Picture* picture, std::string* error) {
  if (!impl_) {
    if (error) *error = "the source is not open";
    return Result::kError;
  }
  Impl& s = *impl_;
  if (s.ended) return Result::kEnd;
  for (;;) {
    int rc = avcodec_receive_frame(s.decoder, s.frame);
    if (rc == 0) {
      const bool ok = s.Convert(picture, error);
      av_frame_unref(s.frame);
      return ok ? Result::kPicture : Result::kError;
    }
    if (rc == AVERROR_EOF) {
      s.ended = true;
      return Result::kEnd;
    }
    if (rc != AVERROR(EAGAIN)) {
      if (error) *error = "the decoder failed: " + AvError(rc);
      return Result::kError;
    }
    rc = av_read_frame(s.input, s.packet);
    if (rc == AVERROR_EOF) {
      if (s.draining) {
        s.ended = true;
        return Result::kEnd;
      }
      s.draining = true;
      avcodec_send_packet(s.decoder, nullptr);
      continue;
    }
    if (rc < 0) {
      if (error) *error = "cannot read the source: " + AvError(rc);
      return Result::kError;
    }
    if (s.packet->stream_index == s.stream) rc = avcodec_send_packet(s.decoder, s.packet);
    av_packet_unref(s.packet);
    if (rc < 0 && rc != AVERROR(EAGAIN) && rc != AVERROR_INVALIDDATA) {
      if (error) *error = "the decoder refused a packet: " + AvError(rc);
      return Result::kError;
    }
  }
}

int FrameSource::SourceWidth() const { return impl_ ? impl_->decoder->width : 0; }
int FrameSource::SourceHeight() const { return impl_ ? impl_->decoder->height : 0; }
double FrameSource::SourceFrameRate() const {
  if (!impl_) return 0;
  const AVRational r = impl_->input->streams[impl_->stream]->avg_frame_rate;
  return r.num > 0 && r.den > 0 ? static_cast<double>(r.num) / r.den : 0;
}

}  // namespace dravix::media
