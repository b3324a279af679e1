#include "dravix/media/frame_source.h"

#include "dravix/media/av_internal.h"
#include "dravix/media/zm_format.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace dravix::media {
namespace {

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
  DecodingInput in;
  SwsContext* sws = nullptr;
  FrameSourceOptions options;
  int64_t firstTs = AV_NOPTS_VALUE;
  int64_t pictures = 0;

  ~Impl() { sws_freeContext(sws); }

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
    const AVFrame* frame = in.frame;
    const AVStream* stream = in.input->streams[in.stream];
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
    const AVRational tb = stream->time_base;
    int64_t ts = frame->best_effort_timestamp;
    if (ts == AV_NOPTS_VALUE) ts = frame->pts;
    if (ts != AV_NOPTS_VALUE && firstTs == AV_NOPTS_VALUE) firstTs = ts;
    if (ts != AV_NOPTS_VALUE && tb.num > 0 && tb.den > 0) {
      out->timeMs = av_rescale_q(ts - firstTs, tb, AVRational{1, 1000});
    } else {
      const AVRational rate = stream->avg_frame_rate;
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
  auto impl = std::make_unique<Impl>();
  impl->options = options;
  impl->in.stallMs = options.stallMs;
  impl->in.abort = options.abort;
  if (options.deviceInput >= 0) impl->in.inputOptions.emplace_back("channel", std::to_string(options.deviceInput));
  if (!impl->in.Open(url, options.format, AVMEDIA_TYPE_VIDEO, 1, error)) return false;
  impl_ = std::move(impl);
  return true;
}

FrameSource::Result FrameSource::Next(Picture* picture, std::string* error) {
  if (!impl_) {
    if (error) *error = "the source is not open";
    return Result::kError;
  }
  Impl& s = *impl_;
  switch (s.in.NextFrame(error)) {
    case DecodingInput::Step::kFrame: {
      const bool ok = s.Convert(picture, error);
      av_frame_unref(s.in.frame);
      return ok ? Result::kPicture : Result::kError;
    }
    case DecodingInput::Step::kEnd:
      return Result::kEnd;
    case DecodingInput::Step::kError:
      break;
  }
  return Result::kError;
}

FrameSource::Result FrameSource::NextPacket(std::vector<uint8_t>* data, int64_t* timeMs, bool* key,
                                            std::string* error) {
  if (!impl_) {
    if (error) *error = "the source is not open";
    return Result::kError;
  }
  Impl& s = *impl_;
  AVPacket* packet = s.in.packet;
  for (;;) {
    s.in.Arm();
    const int rc = av_read_frame(s.in.input, packet);
    if (rc == AVERROR_EOF) return Result::kEnd;
    if (rc < 0) {
      const std::string why = s.in.Interrupted();
      if (error) *error = "cannot read the source: " + (why.empty() ? AvError(rc) : why);
      return Result::kError;
    }
    if (packet->stream_index == s.in.stream && packet->size > 0) break;
    av_packet_unref(packet);
  }
  data->assign(packet->data, packet->data + packet->size);
  *key = (packet->flags & AV_PKT_FLAG_KEY) != 0;
  const AVStream* stream = s.in.input->streams[s.in.stream];
  int64_t ts = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
  if (ts != AV_NOPTS_VALUE && s.firstTs == AV_NOPTS_VALUE) s.firstTs = ts;
  if (ts != AV_NOPTS_VALUE && stream->time_base.num > 0 && stream->time_base.den > 0) {
    *timeMs = av_rescale_q(ts - s.firstTs, stream->time_base, AVRational{1, 1000});
  } else {
    const AVRational rate = stream->avg_frame_rate;
    *timeMs = rate.num > 0 ? s.pictures * 1000 * rate.den / rate.num : 0;
  }
  ++s.pictures;
  av_packet_unref(packet);
  return Result::kPicture;
}

int FrameSource::RecordingCodec() const {
  if (!impl_) return -1;
  switch (impl_->in.decoder->codec_id) {
    case AV_CODEC_ID_MJPEG:
      return kCodecMJPEG;
    case AV_CODEC_ID_H263:
    case AV_CODEC_ID_H263P:
      return kCodecH263;
    default:
      return -1;
  }
}

int FrameSource::SourceWidth() const { return impl_ ? impl_->in.decoder->width : 0; }
int FrameSource::SourceHeight() const { return impl_ ? impl_->in.decoder->height : 0; }
double FrameSource::SourceFrameRate() const {
  if (!impl_) return 0;
  const AVRational r = impl_->in.input->streams[impl_->in.stream]->avg_frame_rate;
  return r.num > 0 && r.den > 0 ? static_cast<double>(r.num) / r.den : 0;
}

}  // namespace dravix::media
