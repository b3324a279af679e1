// Which capture device a camera without a URL records from: the channel
// manager's port map over a simulated card (one card, four chips of four
// inputs, port p on device p) and injected V4L2 device lists.
#include "dravix/recorder/capture_device.h"

#include "dravix/live/avmanager.h"
#include "tests/support/test_home.h"

#include <gtest/gtest.h>

namespace dravix::test {
namespace {

using platform::VideoCaptureNode;

class CaptureDeviceTest : public TestHome {
 protected:
  void Machine(std::vector<VideoCaptureNode> nodes) {
    nodes_ = std::move(nodes);
    live::DeviceEnumerators e;
    e.programName = [] { return std::string("live"); };
    e.videoInputs = [this] {
      std::vector<std::string> names;
      for (const VideoCaptureNode& n : nodes_) names.push_back(n.card);
      return std::optional<std::vector<std::string>>(names);
    };
    e.audioInputs = [] {
      return std::optional<std::vector<live::AudioInputDevice>>(std::vector<live::AudioInputDevice>{});
    };
    live::SetDeviceEnumerators(e);
  }
  void TearDown() override {
    live::SetDeviceEnumerators({});
    TestHome::TearDown();
  }
  std::vector<VideoCaptureNode> nodes_;
};

TEST_F(CaptureDeviceTest, TheRecordersChipsAreFoundByNameWithTheirInput) {
  Machine({{"/dev/video0", "ZMCap2R Capture - Chip0"}, {"/dev/video3", "ZMCap2R Capture - Chip1"}});
  std::string why;
  auto d = recorder::CaptureDeviceOfCamera(1, nodes_, &why);
  ASSERT_TRUE(d) << why;
  EXPECT_EQ(d->path, "/dev/video0");
  EXPECT_EQ(d->input, 0);
  d = recorder::CaptureDeviceOfCamera(6, nodes_, &why);  // port 5: chip 1, input 1
  ASSERT_TRUE(d) << why;
  EXPECT_EQ(d->path, "/dev/video3");
  EXPECT_EQ(d->input, 1);
  EXPECT_FALSE(recorder::CaptureDeviceOfCamera(9, nodes_, &why));  // chip 2 is not there
  EXPECT_EQ(why, "port 8 is capture device 8, and the machine has 2 V4L2 capture devices");
}

TEST_F(CaptureDeviceTest, OtherDevicesCountInDeviceNumberOrder) {
  Machine({{"/dev/video0", "USB Camera"}, {"/dev/video2", "HD Webcam"}});
  std::string why;
  auto d = recorder::CaptureDeviceOfCamera(2, nodes_, &why);
  ASSERT_TRUE(d) << why;
  EXPECT_EQ(d->path, "/dev/video2");
  EXPECT_EQ(d->input, -1);
  EXPECT_FALSE(recorder::CaptureDeviceOfCamera(3, nodes_, &why));
  EXPECT_FALSE(recorder::CaptureDeviceOfCamera(17, nodes_, &why));
  EXPECT_EQ(why, "the channel manager counts 16 camera ports, and camera 17 is port 16");
}

}  // namespace
}  // namespace dravix::test
