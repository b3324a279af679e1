// The capture devices of the machine, as the channel manager counts them:
// V4L2 video capture devices and ALSA capture PCMs.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace dravix::platform {

// A /dev/video* device that captures video.
struct VideoCaptureNode {
  std::string path;  // "/dev/video0"
  std::string card;  // its VIDIOC_QUERYCAP "card" name
};
// The video capture devices in device-number order. nullopt when /dev
// cannot be read.
std::optional<std::vector<VideoCaptureNode>> ListVideoCaptureNodes();
// Their card names, in the same order.
std::optional<std::vector<std::string>> ListVideoCaptureDevices();

struct AudioCaptureDevice {
  std::string name;   // the PCM's description
  int inputPins = 0;  // capture substreams
};

// The ALSA capture PCMs listed in /proc/asound/pcm, in card and device
// order. nullopt when the machine has no ALSA (no /proc/asound/pcm).
std::optional<std::vector<AudioCaptureDevice>> ListAudioCaptureDevices();
// The same, parsed from the text of /proc/asound/pcm.
std::vector<AudioCaptureDevice> ParseAlsaPcmList(const std::string& text);

// The base name of the running executable (/proc/self/exe), "" when unknown.
std::string RunningProgramName();

}  // namespace dravix::platform
