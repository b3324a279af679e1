#include "dravix/media/picture_convert.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace dravix::media {
namespace {

// One conversion from a Picture's planes to `dst`.
bool Run(const Picture& in, AVPixelFormat dstFormat, bool dstFull, uint8_t* const dst[4], const int dstStride[4],
         std::string* error) {
  if (in.width <= 0 || in.height <= 0 || in.y.size() < static_cast<size_t>(in.width) * in.height ||
      in.u.size() < static_cast<size_t>(in.width / 2) * (in.height / 2) || in.v.size() < in.u.size()) {
    if (error) *error = "an empty or short picture";
    return false;
  }
  SwsContext* sws = sws_getContext(in.width, in.height, AV_PIX_FMT_YUV420P, in.width, in.height, dstFormat,
                                   SWS_BILINEAR, nullptr, nullptr, nullptr);
  if (sws == nullptr) {
    if (error) *error = "cannot set up the picture conversion";
    return false;
  }
  int* inv = nullptr;
  int* table = nullptr;
  int srcRange = 0, dstRange = 0, brightness = 0, contrast = 0, saturation = 0;
  if (sws_getColorspaceDetails(sws, &inv, &srcRange, &table, &dstRange, &brightness, &contrast, &saturation) >= 0)
    sws_setColorspaceDetails(sws, inv, in.fullRange ? 1 : 0, table, dstFull ? 1 : 0, brightness, contrast, saturation);
  const uint8_t* src[4] = {in.y.data(), in.u.data(), in.v.data(), nullptr};
  const int srcStride[4] = {in.width, in.width / 2, in.width / 2, 0};
  sws_scale(sws, src, srcStride, 0, in.height, dst, dstStride);
  sws_freeContext(sws);
  return true;
}

}  // namespace

bool ConvertPictureRange(const Picture& in, bool fullRange, Picture* out, std::string* error) {
  if (in.fullRange == fullRange) {
    *out = in;
    return true;
  }
  Picture result;
  result.Resize(in.width, in.height);
  uint8_t* dst[4] = {result.y.data(), result.u.data(), result.v.data(), nullptr};
  const int stride[4] = {result.width, result.width / 2, result.width / 2, 0};
  if (!Run(in, AV_PIX_FMT_YUV420P, fullRange, dst, stride, error)) return false;
  result.fullRange = fullRange;
  result.timeMs = in.timeMs;
  *out = std::move(result);
  return true;
}

bool PictureToRgb(const Picture& in, std::vector<uint8_t>* rgb, std::string* error) {
  rgb->resize(static_cast<size_t>(in.width > 0 ? in.width : 0) * (in.height > 0 ? in.height : 0) * 3);
  uint8_t* dst[4] = {rgb->data(), nullptr, nullptr, nullptr};
  const int stride[4] = {in.width * 3, 0, 0, 0};
  return Run(in, AV_PIX_FMT_RGB24, true, dst, stride, error);
}

}  // namespace dravix::media
