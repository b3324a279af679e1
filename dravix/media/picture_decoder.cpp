#include "dravix/media/picture_decoder.h"

#include "dravix/media/av_internal.h"
#include "dravix/media/zm_format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/error.h>
#include <libswscale/swscale.h>
}

#include <cstring>

namespace dravix::media {
namespace {

void CopyPlane(const uint8_t* src, int srcStride, uint8_t* dst, int width, int height) {
  for (int row = 0; row < height; ++row)
    std::memcpy(dst + static_cast<ptrdiff_t>(row) * width, src + static_cast<ptrdiff_t>(row) * srcStride,
                static_cast<size_t>(width));
}

}  // namespace

struct PictureDecoder::Impl {
  AVCodecContext* ctx = nullptr;
  AVFrame* frame = nullptr;
  AVPacket* packet = nullptr;
  SwsContext* sws = nullptr;

  ~Impl() {
    sws_freeContext(sws);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&ctx);
  }

  bool Take(Picture* out, std::string* error) {
    const int w = frame->width & ~1;
    const int h = frame->height & ~1;
    const bool full = frame->color_range == AVCOL_RANGE_JPEG || frame->format == AV_PIX_FMT_YUVJ420P ||
                      frame->format == AV_PIX_FMT_YUVJ422P || frame->format == AV_PIX_FMT_YUVJ444P;
    out->Resize(w, h);
    out->fullRange = full;
    if (frame->format == AV_PIX_FMT_YUV420P || frame->format == AV_PIX_FMT_YUVJ420P) {
      CopyPlane(frame->data[0], frame->linesize[0], out->y.data(), w, h);
      CopyPlane(frame->data[1], frame->linesize[1], out->u.data(), w / 2, h / 2);
      CopyPlane(frame->data[2], frame->linesize[2], out->v.data(), w / 2, h / 2);
      return true;
    }
    // Other chroma layouts (4:2:2 or 4:4:4 JPEG) become 4:2:0 of the same range.
    sws =
        sws_getCachedContext(sws, w, h, static_cast<AVPixelFormat>(frame->format), w, h,
                             full ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (sws == nullptr) {
      if (error) *error = "cannot convert the decoded pictures";
      return false;
    }
    uint8_t* dst[4] = {out->y.data(), out->u.data(), out->v.data(), nullptr};
    const int strides[4] = {w, w / 2, w / 2, 0};
    sws_scale(sws, frame->data, frame->linesize, 0, h, dst, strides);
    return true;
  }
};

PictureDecoder::PictureDecoder() = default;
PictureDecoder::~PictureDecoder() = default;

bool PictureDecoder::Open(int codec, std::string* error) {
  impl_.reset();
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return false;
  };
  if (codec != kCodecH263 && codec != kCodecMJPEG) return fail("unknown codec " + std::to_string(codec));
  const AVCodec* c = avcodec_find_decoder(codec == kCodecMJPEG ? AV_CODEC_ID_MJPEG : AV_CODEC_ID_H263);
  if (c == nullptr) return fail("this FFmpeg has no decoder for the recording's codec");
  auto impl = std::make_unique<Impl>();
  impl->ctx = avcodec_alloc_context3(c);
  impl->frame = av_frame_alloc();
  impl->packet = av_packet_alloc();
  if (impl->ctx == nullptr || impl->frame == nullptr || impl->packet == nullptr) return fail("out of memory");
  impl->ctx->thread_count = 1;
  const int rc = avcodec_open2(impl->ctx, c, nullptr);
  if (rc < 0) return fail(std::string("cannot open the ") + c->name + " decoder: " + AvError(rc));
  impl_ = std::move(impl);
  return true;
}

bool PictureDecoder::Decode(const uint8_t* data, size_t size, Picture* picture, bool* got, std::string* error) {
  *got = false;
  if (!impl_) {
    if (error) *error = "the decoder is not open";
    return false;
  }
  if (size == 0 || size > INT32_MAX) {
    if (error) *error = "an empty or oversized record";
    return false;
  }
  // libavcodec reads up to AV_INPUT_BUFFER_PADDING_SIZE bytes past the end.
  int rc = av_new_packet(impl_->packet, static_cast<int>(size));
  if (rc < 0) {
    if (error) *error = "out of memory";
    return false;
  }
  std::memcpy(impl_->packet->data, data, size);
  rc = avcodec_send_packet(impl_->ctx, impl_->packet);
  av_packet_unref(impl_->packet);
  if (rc < 0) {
    if (error) *error = "the record cannot be decoded: " + AvError(rc);
    return false;
  }
  rc = avcodec_receive_frame(impl_->ctx, impl_->frame);
  if (rc == AVERROR(EAGAIN)) return true;
  if (rc < 0) {
    if (error) *error = "the record cannot be decoded: " + AvError(rc);
    return false;
  }
  const bool ok = impl_->Take(picture, error);
  av_frame_unref(impl_->frame);
  *got = ok;
  return ok;
}

}  // namespace dravix::media
