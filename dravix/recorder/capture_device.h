// The capture device a camera records from when no URL is given for it.
//
// Camera n is the channel manager's port n - 1 (IAVManager, counted as the
// live program counts it): its port map names a device number. When the
// manager recognised one of the recorder's capture chips under that number,
// the device is the V4L2 node whose card name is the chip's, and the chip's
// input is chosen as the node's V4L2 input. Otherwise the device number
// counts the machine's V4L2 capture nodes in device-number order, so an
// ordinary capture device (a USB camera, a PCI grabber) is found by its
// place: device 0 is the first /dev/video* node that captures.
#pragma once

#include "dravix/platform/media_devices.h"

#include <optional>
#include <string>
#include <vector>

namespace dravix::recorder {

struct CaptureDevice {
  std::string path;  // "/dev/video2", opened with the "v4l2" input format
  int input = -1;    // the V4L2 input to choose; -1: the device's own
};

// The device of camera `camera` (1..16) among `nodes`; nullopt with `why`
// (the port, the device number and what is missing) when there is none.
std::optional<CaptureDevice> CaptureDeviceOfCamera(int camera, const std::vector<platform::VideoCaptureNode>& nodes,
                                                   std::string* why);

}  // namespace dravix::recorder
