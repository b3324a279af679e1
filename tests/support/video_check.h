// Checks of exported video with Debian's ffprobe and ffmpeg programs.
#pragma once

#include "dravix/media/frame_code.h"

#include <string>
#include <vector>

namespace dravix::test {

// The video frames ffprobe counts by decoding; -1 when it fails.
int VideoFrames(const std::string& file);
// What `ffmpeg -v error` says while decoding the whole file ("" when clean).
std::string DecodeErrors(const std::string& file);
// The frame codes of every decoded picture of the first video stream, in
// order; a picture without a readable code fails the test.
std::vector<media::FrameCode> FrameCodes(const std::string& file, int width, int height);

}  // namespace dravix::test
