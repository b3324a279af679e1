// FrameSource: pictures pulled from anything libavformat opens, scaled to a
// camera's picture size.
//
// The source is named by a URL and an optional input format name, as the
// `ffmpeg` program takes them: a file ("clip.mkv"), a stream
// ("rtsp://cam/1"), a capture device ("/dev/video0" with format "v4l2"), or
// a libavfilter graph with format "lavfi" ("testsrc2=size=640x480:rate=25",
// see TestPatternUrl()). The first video stream is decoded.
//
// Every picture comes out as a Picture of the source's size (an odd width
// or height loses its last column or row) in the luma range asked for; the
// pixel format and range are converted with libswscale. The size is not
// changed here: a camera's pictures are scaled with the imaging scalers by
// the caller (ScalePicture in dravix/live), as live pictures are.
// Picture::timeMs is the picture's time from the first picture.
//
// Not thread-safe; not copyable or movable.
#pragma once

#include "dravix/media/picture.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace dravix::media {

struct FrameSourceOptions {
  std::string format;      // libavformat input format name; empty: found from the URL
  bool fullRange = false;  // luma 0..255 (for MJPEG) instead of 16..235
  int deviceInput = -1;    // the capture device's input to choose (V4L2 "channel"); -1: its own
  // Opening and every read fail ("nothing came for N s") when the source
  // answers nothing for this long; 0 waits for ever.
  int stallMs = 0;
  // Opening and reading fail at once when this turns true (a stop).
  const std::atomic<bool>* abort = nullptr;
};

class FrameSource {
 public:
  enum class Result { kPicture, kEnd, kError };

  FrameSource();
  ~FrameSource();
  FrameSource(const FrameSource&) = delete;
  FrameSource& operator=(const FrameSource&) = delete;

  // Opens the source and its video decoder. False with `error` (what could
  // not be opened and why) on failure.
  bool Open(const std::string& url, const FrameSourceOptions& options, std::string* error);

  // The next picture. kEnd at the end of the source; kError with `error`.
  Result Next(Picture* picture, std::string* error);

  // The next compressed picture of the video stream as it came, undecoded
  // (for storing pictures without encoding them again), its time from the
  // first one, and whether the container marks it a key picture (one that
  // decodes alone). A source is read either with Next() or with
  // NextPacket(), not both.
  Result NextPacket(std::vector<uint8_t>* data, int64_t* timeMs, bool* key, std::string* error);
  // The video stream's codec as a recording names it (kCodecMJPEG: each
  // packet one JPEG picture; kCodecH263 for H.263 and H.263+), or -1.
  int RecordingCodec() const;

  // The source's own picture size and frame rate (0 when unknown).
  int SourceWidth() const;
  int SourceHeight() const;
  double SourceFrameRate() const;

  // The moving test pattern (libavfilter's testsrc2) as a "lavfi" URL.
  static std::string TestPatternUrl(int width, int height, unsigned framesPerSecond);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace dravix::media
