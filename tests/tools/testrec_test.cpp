// `dravix write-test-recording` and `dravix frame` as a user runs them:
// what they refuse, that their output is whole or absent, and that the
// pictures they write open in Debian's ffprobe/ffmpeg and show the frame
// asked for.
#include "dravix/media/frame_code.h"
#include "tests/tools/media_tool_util.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

namespace dravix::test {
namespace {

// The frame number drawn in a picture file, decoded by the ffmpeg program.
int64_t FrameNumberIn(const std::string& picture, int width, int height) {
  const std::string gray = RunCommand("ffmpeg -v error -i '" + picture + "' -f rawvideo -pix_fmt gray -");
  if (gray.size() != static_cast<size_t>(width) * height) return -1;
  media::FrameCode code;
  if (!media::ReadFrameCode(reinterpret_cast<const uint8_t*>(gray.data()), width, width, height, &code)) return -1;
  return code.frame;
}

class TestRecordingCommand : public TestHome {};

TEST_F(TestRecordingCommand, RefusesWhatMakesNoRecordAndWritesNothing) {
  struct Case {
    std::vector<std::string> args;
    int status;
  };
  const std::string out = Path("rec.dat");
  const Case cases[] = {
      {{"--seconds", "0"}, 2},
      {{"--size", "100x100"}, 2},
      {{"--size", "640x480x2"}, 2},
      {{"--codec", "vp8"}, 2},
      {{"--fps", "0"}, 2},
      {{"--frame-bytes", "100"}, 2},          // a noise setting without --noise
      {{"--noise", "--size", "176x144"}, 2},  // noise has only the size-code table
      {{"--audio", "--no-audio"}, 2},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args{"write-test-recording", out};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const ProgramResult r = RunDravix(args);
    EXPECT_EQ(r.status, c.status) << args[2] << " " << r.err;
    EXPECT_FALSE(r.err.empty());
  }
  const ProgramResult r = RunDravix({"write-test-recording", Path("missing/rec.dat"), "--seconds", "1"});
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.err.find("missing/rec.dat"), std::string::npos) << r.err;
  EXPECT_TRUE(std::filesystem::is_empty(home()));
}

TEST_F(TestRecordingCommand, AKilledWriterLeavesNoFileAndAFinishedOneBoth) {
  const pid_t pid = StartDravix({"write-test-recording", Path("rec.dat"), "--seconds", "600", "--size", "720x576",
                                 "--codec", "mjpeg", "--audio"});
  ASSERT_GT(pid, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  ::kill(pid, SIGKILL);
  EXPECT_EQ(WaitProgram(pid), 128 + SIGKILL);
  EXPECT_TRUE(std::filesystem::is_empty(home())) << "a killed writer leaves neither the recording nor its index";

  const ProgramResult r =
      RunDravix({"write-test-recording", Path("rec.dat"), "--seconds", "1", "--size", "128x96", "--fps", "5"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(std::filesystem::exists(Path("rec.dat")));
  EXPECT_TRUE(std::filesystem::exists(Path("rec.idx")));
  EXPECT_EQ(Snapshot(home()).size(), 2u);
}

TEST_F(TestRecordingCommand, FrameWritesAPictureFfmpegOpensShowingTheFrameAsked) {
  const std::string start = "2008-03-15 12:00:00";
  ASSERT_EQ(RunDravix({"write-test-recording", Path("h.dat"), "--seconds", "2", "--fps", "10", "--size", "352x288",
                       "--start", start, "--audio"})
                .status,
            0);
  ASSERT_EQ(RunDravix({"write-test-recording", Path("m.dat"), "--seconds", "2", "--fps", "10", "--size", "320x240",
                       "--codec", "mjpeg", "--start", start})
                .status,
            0);
  struct Case {
    std::string src, out, codec;
    int width, height;
  };
  const Case cases[] = {{"h.dat", "h.jpg", "mjpeg", 352, 288},
                        {"h.dat", "h.ppm", "ppm", 352, 288},
                        {"m.dat", "m.jpg", "mjpeg", 320, 240},
                        {"m.dat", "m.PPM", "ppm", 320, 240}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.out);
    const ProgramResult r = RunDravix({"frame", Path(c.src), "--at", "2008-03-15 12:00:01.350", Path(c.out)});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string probe =
        RunCommand("ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 '" + Path(c.out) + "'");
    EXPECT_EQ(probe, c.codec + "," + std::to_string(c.width) + "," + std::to_string(c.height) + "\n");
    EXPECT_EQ(FrameNumberIn(Path(c.out), c.width, c.height), 13);
  }

  // Output refused or impossible: nothing new appears, the recording stays.
  const FolderBytes before = Snapshot(home());
  const std::vector<std::pair<std::vector<std::string>, int>> bad = {
      {{"frame", Path("m.dat"), "--at", "2008-03-15 12:00:01", Path("m.dat")}, 2},  // not a picture name
      {{"frame", Path("m.dat"), "--at", "2008-03-15 12:00:01", Path("x.png")}, 2},
      {{"frame", Path("m.dat"), "--at", "2008-03-15 11:59:59", Path("x.jpg")}, 1},  // before the first
      {{"frame", Path("m.dat"), "--at", "2008-03-15 12:00:05", Path("x.jpg")}, 1},  // after the last
      {{"frame", Path("none.dat"), "--at", "2008-03-15 12:00:01", Path("x.jpg")}, 1},
      {{"frame", Path("m.dat"), "--at", "2008-03-15 12:00:01", Path("no/x.jpg")}, 1},
      {{"frame", Path("m.dat"), "--at", "yesterday", Path("x.jpg")}, 2},
  };
  for (const auto& [args, status] : bad) {
    const ProgramResult r = RunDravix(args);
    EXPECT_EQ(r.status, status) << args[1] << " " << args[3] << " " << args[4] << ": " << r.err;
    EXPECT_FALSE(r.err.empty());
  }
  EXPECT_EQ(Snapshot(home()), before);
}

}  // namespace
}  // namespace dravix::test
