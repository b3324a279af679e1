// The encoder is libavcodec's MJPEG, H.263 and H.263+ encoders driven with
// one thread and no B pictures. Pictures are copied into a frame libavcodec
// allocated (its own alignment), so a Picture's packed planes never need
// padding; the copy costs less than a per-cent of the encode.
#include "dravix/media/video_encoder.h"

#include "dravix/media/av_internal.h"
#include "dravix/media/jfif.h"
#include "dravix/media/picture_convert.h"
#include "dravix/media/zm_format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
}

#include <algorithm>
#include <cstring>
#include <deque>

namespace dravix::media {
namespace {

void CopyPlane(const uint8_t* src, int srcStride, uint8_t* dst, int dstStride, int width, int height) {
  for (int row = 0; row < height; ++row)
    std::memcpy(dst + static_cast<ptrdiff_t>(row) * dstStride, src + static_cast<ptrdiff_t>(row) * srcStride,
                static_cast<size_t>(width));
}

}  // namespace

struct VideoEncoder::Impl {
  AVCodecContext* ctx = nullptr;
  AVFrame* frame = nullptr;
  AVPacket* packet = nullptr;
  VideoEncoderSettings settings;
  int64_t nextPts = 0;
  std::deque<int64_t> times;  // picture times waiting for their packets

  ~Impl() {
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&ctx);
  }

  bool Drain(std::vector<EncodedPacket>* out, std::string* error) {
    for (;;) {
      const int rc = avcodec_receive_packet(ctx, packet);
      if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return true;
      if (rc < 0) {
        if (error) *error = "the encoder failed: " + AvError(rc);
        return false;
      }
      EncodedPacket p;
      p.data.assign(packet->data, packet->data + packet->size);
      p.key = settings.codec == kCodecMJPEG || (packet->flags & AV_PKT_FLAG_KEY) != 0;
      if (!times.empty()) {
        p.timeMs = times.front();
        times.pop_front();
      }
      av_packet_unref(packet);
      if (settings.codec == kCodecMJPEG && !EnsureJfifApp0(&p.data)) {
        if (error) *error = "the MJPEG encoder gave a picture that is not a JPEG";
        return false;
      }
      const ZMPictureCheck check = settings.codec == kCodecMJPEG ? ZMPictureCheck::kMJPEG : ZMPictureCheck::kH263;
      if (!StartsPicture(check, p.data.data(), p.data.size())) {
        if (error) *error = "the encoder gave a record that does not start a picture";
        return false;
      }
      out->push_back(std::move(p));
    }
  }
};

VideoEncoder::VideoEncoder() = default;
VideoEncoder::~VideoEncoder() = default;

bool VideoEncoder::IsOpen() const { return impl_ != nullptr; }

int VideoEncoder::MjpegQScale(int quality) {
  const int q = std::clamp(quality, 1, 100);
  return 31 - (29 * (q - 1) + 49) / 99;
}

int64_t VideoEncoder::H263BitRate(int zmediaQuality, int width, int height, uint32_t framesPerSecond) {
  const int level = std::clamp(zmediaQuality, 0, 4);
  const int64_t pixelsPerSecond = static_cast<int64_t>(width) * height * framesPerSecond;
  // 0.1 bit per pixel at level 0, + 0.05 per level: (2 + level) / 20.
  return pixelsPerSecond * (2 + level) / 20;
}

bool VideoEncoder::IsBaselineH263Size(int width, int height) {
  return (width == 128 && height == 96) || (width == 176 && height == 144) || (width == 352 && height == 288) ||
         (width == 704 && height == 576);
}

bool VideoEncoder::FullRangeFor(int codec) { return codec == kCodecMJPEG; }

bool VideoEncoder::Open(const VideoEncoderSettings& s, std::string* error) {
  impl_.reset();
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return false;
  };
  if (s.codec != kCodecMJPEG && s.codec != kCodecH263) return fail("unknown codec " + std::to_string(s.codec));
  if (s.framesPerSecond == 0 || s.framesPerSecond > 1000) return fail("a frame rate of 1 to 1000 is needed");
  const std::string size = std::to_string(s.width) + "x" + std::to_string(s.height);
  if (s.width < 16 || s.height < 16 || s.width % 2 != 0 || s.height % 2 != 0 || s.width > 4096 || s.height > 4096)
    return fail("cannot encode pictures of " + size);
  AVCodecID id = AV_CODEC_ID_MJPEG;
  if (s.codec == kCodecH263) {
    if (IsBaselineH263Size(s.width, s.height)) {
      id = AV_CODEC_ID_H263;
    } else if (s.width % 4 == 0 && s.height % 4 == 0 && s.width <= 2048 && s.height <= 1152) {
      id = AV_CODEC_ID_H263P;
    } else {
      return fail("H.263 cannot carry pictures of " + size +
                  " (H.263+ needs sides that are multiples of 4, at most 2048x1152)");
    }
  }
  const AVCodec* codec = avcodec_find_encoder(id);
  if (codec == nullptr) return fail(std::string("this FFmpeg has no ") + avcodec_get_name(id) + " encoder");

  auto impl = std::make_unique<Impl>();
  impl->settings = s;
  impl->ctx = avcodec_alloc_context3(codec);
  impl->frame = av_frame_alloc();
  impl->packet = av_packet_alloc();
  if (impl->ctx == nullptr || impl->frame == nullptr || impl->packet == nullptr) return fail("out of memory");
  AVCodecContext* c = impl->ctx;
  c->width = s.width;
  c->height = s.height;
  c->time_base = AVRational{1, static_cast<int>(s.framesPerSecond)};
  c->framerate = AVRational{static_cast<int>(s.framesPerSecond), 1};
  c->thread_count = 1;
  c->max_b_frames = 0;
  if (s.codec == kCodecMJPEG) {
    c->pix_fmt = AV_PIX_FMT_YUVJ420P;
    c->color_range = AVCOL_RANGE_JPEG;
    c->flags |= AV_CODEC_FLAG_QSCALE;
    c->global_quality = FF_QP2LAMBDA * MjpegQScale(s.mjpegQuality);
  } else {
    c->pix_fmt = AV_PIX_FMT_YUV420P;
    c->gop_size = static_cast<int>(s.keyInterval ? s.keyInterval : s.framesPerSecond);
    c->bit_rate = H263BitRate(s.zmediaQuality, s.width, s.height, s.framesPerSecond);
    // H.263 clips coefficient levels to +-127: at a fine quantiser an inter
    // block whose brightness jumps (a light switched on, a frame code bit)
    // comes out far too dark or light. Choosing each macroblock's coding by
    // its rate and real distortion codes such a block intra instead.
    c->mb_decision = FF_MB_DECISION_RD;
  }
  int rc = avcodec_open2(c, codec, nullptr);
  if (rc < 0) return fail(std::string("cannot open the ") + codec->name + " encoder for " + size + ": " + AvError(rc));
  impl->frame->format = c->pix_fmt;
  impl->frame->width = s.width;
  impl->frame->height = s.height;
  rc = av_frame_get_buffer(impl->frame, 0);
  if (rc < 0) return fail("cannot allocate a picture: " + AvError(rc));
  impl_ = std::move(impl);
  return true;
}

bool VideoEncoder::Encode(const Picture& picture, std::vector<EncodedPacket>* out, std::string* error) {
  if (!impl_) {
    if (error) *error = "the encoder is not open";
    return false;
  }
  const VideoEncoderSettings& s = impl_->settings;
  if (picture.width != s.width || picture.height != s.height ||
      picture.y.size() < static_cast<size_t>(s.width) * s.height ||
      picture.u.size() < static_cast<size_t>(s.width / 2) * (s.height / 2) || picture.v.size() < picture.u.size()) {
    if (error)
      *error = "a picture of " + std::to_string(picture.width) + "x" + std::to_string(picture.height) +
               " given to an encoder of " + std::to_string(s.width) + "x" + std::to_string(s.height);
    return false;
  }
  if (picture.fullRange != FullRangeFor(s.codec)) {
    if (error)
      *error = std::string("a picture in ") + (picture.fullRange ? "full" : "video") + " range given to an " +
               (s.codec == kCodecMJPEG ? "MJPEG" : "H.263") + " encoder (convert it first)";
    return false;
  }
  AVFrame* f = impl_->frame;
  int rc = av_frame_make_writable(f);
  if (rc < 0) {
    if (error) *error = "cannot reuse the picture buffer: " + AvError(rc);
    return false;
  }
  CopyPlane(picture.y.data(), s.width, f->data[0], f->linesize[0], s.width, s.height);
  CopyPlane(picture.u.data(), s.width / 2, f->data[1], f->linesize[1], s.width / 2, s.height / 2);
  CopyPlane(picture.v.data(), s.width / 2, f->data[2], f->linesize[2], s.width / 2, s.height / 2);
  f->pts = impl_->nextPts++;
  if (s.codec == kCodecMJPEG) f->quality = impl_->ctx->global_quality;
  impl_->times.push_back(picture.timeMs);
  rc = avcodec_send_frame(impl_->ctx, f);
  if (rc < 0) {
    impl_->times.pop_back();
    if (error) *error = "the encoder refused a picture: " + AvError(rc);
    return false;
  }
  return impl_->Drain(out, error);
}

bool VideoEncoder::Flush(std::vector<EncodedPacket>* out, std::string* error) {
  if (!impl_) {
    if (error) *error = "the encoder is not open";
    return false;
  }
  const int rc = avcodec_send_frame(impl_->ctx, nullptr);
  if (rc < 0 && rc != AVERROR_EOF) {
    if (error) *error = "the encoder cannot be drained: " + AvError(rc);
    return false;
  }
  return impl_->Drain(out, error);
}

bool EncodeJpegPicture(const Picture& picture, int quality, std::vector<uint8_t>* jpeg, std::string* error) {
  Picture full;
  if (!ConvertPictureRange(picture, true, &full, error)) return false;
  VideoEncoder encoder;
  VideoEncoderSettings s;
  s.codec = kCodecMJPEG;
  s.width = full.width;
  s.height = full.height;
  s.mjpegQuality = quality;
  std::vector<EncodedPacket> packets;
  if (!encoder.Open(s, error) || !encoder.Encode(full, &packets, error) || !encoder.Flush(&packets, error))
    return false;
  if (packets.size() != 1) {
    *error = "the JPEG encoder gave no picture";
    return false;
  }
  *jpeg = std::move(packets.front().data);
  return true;
}

}  // namespace dravix::media
