#include "dravix/media/zm_format.h"

namespace dravix::media {

int PictureSizeCode(int32_t width, int32_t height) {
  for (int i = 0; i < 7; ++i)
    if (kZMPictureSizes[i].width == width && kZMPictureSizes[i].height == height) return i;
  return -1;
}

ZMPictureCheck PictureCheckFor(const GUID& subtype) {
  if (subtype == kSubtypeH263) return ZMPictureCheck::kH263;
  if (subtype == kSubtypeMJPEG) return ZMPictureCheck::kMJPEG;
  return ZMPictureCheck::kNone;
}

bool IsPlausibleHead(const ZMRecordHead& h, uint32_t streamCount) {
  return h.stream < streamCount && h.length >= 1 && h.length <= kZMMaxPayload && h.flag <= 1;
}

bool StartsPicture(ZMPictureCheck check, const uint8_t* payload, size_t available) {
  switch (check) {
    case ZMPictureCheck::kNone:
      return true;
    case ZMPictureCheck::kH263:
      // 00 00 then 100000xx: a picture start code.
      return available >= 3 && payload[0] == 0x00 && payload[1] == 0x00 && (payload[2] & 0xFC) == 0x80;
    case ZMPictureCheck::kMJPEG:
      // SOI followed by an APP0 marker.
      return available >= 4 && payload[0] == 0xFF && payload[1] == 0xD8 && payload[2] == 0xFF && payload[3] == 0xE0;
  }
  return false;
}

bool IsValidRecord(const ZMRecordHead& h, const uint8_t* payloadStart, size_t available, const ZMRecordRules& rules) {
  if (!IsPlausibleHead(h, rules.streamCount)) return false;
  if (static_cast<int64_t>(h.time) > rules.durationMs) return false;
  if (rules.videoStream >= 0 && h.stream == rules.videoStream) {
    const size_t usable = available < h.length ? available : h.length;
    return StartsPicture(rules.picture, payloadStart, usable);
  }
  return true;
}

}  // namespace dravix::media
