// VideoEncoder: pictures in, a camera's compressed records out.
//
// Encodes Pictures to one of the two codecs a recording holds, ready to be
// handed to ZMRecordingWriter::AddRecord as they are:
//   - MJPEG: every picture a JFIF JPEG (FF D8 FF E0 ...), all key pictures.
//     The camera's "MJPEGQuality" (1..100, higher is better, 70 by default)
//     becomes the JPEG quantiser scale MjpegQScale(); pictures are taken in
//     full range (Picture::fullRange true), as JFIF defines.
//   - H.263: baseline H.263 for its own picture sizes (128x96, 176x144,
//     352x288, 704x576), H.263+ for any other size (width and height
//     multiples of 4, at most 2048x1152). Every record starts a picture
//     (00 00 80..83); a key picture once a second by default, no B
//     pictures, so records come out in the order pictures go in. The
//     camera's "ZMediaQuality" sets the bit rate, H263BitRate(). Pictures
//     are taken in video range (fullRange false).
// FullRangeFor(codec) says which range to ask a FrameSource for.
//
// The encoder runs in the calling thread only (one core), as a recorder
// runs one encoder per camera. Not thread-safe; not copyable or movable.
#pragma once

#include "dravix/media/picture.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace dravix::media {

struct VideoEncoderSettings {
  int codec = 0;  // kCodecH263 or kCodecMJPEG
  int width = 0;
  int height = 0;
  uint32_t framesPerSecond = 25;
  int mjpegQuality = 70;     // the camera's "MJPEGQuality"
  int zmediaQuality = 0;     // the camera's "ZMediaQuality"
  uint32_t keyInterval = 0;  // H.263 pictures from one key picture to the next; 0: one second
};

// One compressed picture: the payload of one video record.
struct EncodedPacket {
  std::vector<uint8_t> data;
  bool key = false;
  int64_t timeMs = 0;  // the Picture's timeMs
};

class VideoEncoder {
 public:
  VideoEncoder();
  ~VideoEncoder();
  VideoEncoder(const VideoEncoder&) = delete;
  VideoEncoder& operator=(const VideoEncoder&) = delete;

  // Sets up the codec. False with `error` for a codec other than the two,
  // a picture size the codec cannot carry, or a frame rate of 0.
  bool Open(const VideoEncoderSettings& settings, std::string* error);
  bool IsOpen() const;

  // Encodes one picture of the opened size and appends what the codec gives
  // back (for these codecs, one packet per picture) to `out`. False with
  // `error` when the picture has another size, is not in the codec's luma
  // range (FullRangeFor), or the codec fails.
  bool Encode(const Picture& picture, std::vector<EncodedPacket>* out, std::string* error);
  // Drains the codec at the end of the pictures.
  bool Flush(std::vector<EncodedPacket>* out, std::string* error);

  // "MJPEGQuality" to the quantiser scale: 100 -> 2 (finest), 1 -> 31,
  // linear between (qscale = 31 - round(29 * (q - 1) / 99)); values outside
  // 1..100 are clamped.
  static int MjpegQScale(int quality);
  // "ZMediaQuality" to bits per second: 0 is the recorder's normal quality,
  // 0.1 bit per pixel and picture; each level above adds a half of that
  // (level 4: 0.3 bit per pixel). Levels outside 0..4 are clamped.
  static int64_t H263BitRate(int zmediaQuality, int width, int height, uint32_t framesPerSecond);
  // True for the sizes baseline H.263 carries.
  static bool IsBaselineH263Size(int width, int height);
  static bool FullRangeFor(int codec);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// One picture as a JPEG file's bytes (JFIF, full range) at "MJPEGQuality"
// `quality`. False with `error` when it cannot be converted or encoded.
bool EncodeJpegPicture(const Picture& picture, int quality, std::vector<uint8_t>* jpeg, std::string* error);

}  // namespace dravix::media
