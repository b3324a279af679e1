#include "tests/support/video_check.h"

#include "tests/support/run_program.h"

#include <gtest/gtest.h>

namespace dravix::test {
namespace {

std::string Q(const std::string& s) { return "'" + s + "'"; }

}  // namespace

int VideoFrames(const std::string& file) {
  int status = -1;
  const std::string out = RunCommand(
      "ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 " + Q(file),
      &status);
  return status == 0 && !out.empty() ? std::stoi(out) : -1;
}

std::string DecodeErrors(const std::string& file) {
  return RunCommand("ffmpeg -nostdin -v error -i " + Q(file) + " -f null - 2>&1");
}

std::vector<media::FrameCode> FrameCodes(const std::string& file, int width, int height) {
  const std::string gray = RunCommand("ffmpeg -nostdin -v error -i " + Q(file) +
                                      " -map 0:v:0 -fps_mode passthrough -f rawvideo -pix_fmt gray -");
  std::vector<media::FrameCode> codes;
  const size_t frame = static_cast<size_t>(width) * height;
  for (size_t at = 0; at + frame <= gray.size(); at += frame) {
    media::FrameCode c;
    EXPECT_TRUE(media::ReadFrameCode(reinterpret_cast<const uint8_t*>(gray.data() + at), width, width, height, &c))
        << file << ": picture " << codes.size() << " has no frame code";
    codes.push_back(c);
  }
  return codes;
}

}  // namespace dravix::test
