#include "dravix/platform/media_devices.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace dravix::platform {
namespace {

std::string Trim(const std::string& s) {
  const size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  const size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

}  // namespace

std::optional<std::vector<VideoCaptureNode>> ListVideoCaptureNodes() {
  std::error_code ec;
  std::filesystem::directory_iterator it("/dev", ec);
  if (ec) return std::nullopt;
  std::vector<std::pair<long, std::string>> nodes;
  for (const auto& entry : it) {
    const std::string name = entry.path().filename().string();
    if (name.rfind("video", 0) != 0 || name.size() == 5) continue;
    char* end = nullptr;
    const long n = std::strtol(name.c_str() + 5, &end, 10);
    if (end == nullptr || *end != '\0') continue;
    nodes.emplace_back(n, entry.path().string());
  }
  std::sort(nodes.begin(), nodes.end());
  std::vector<VideoCaptureNode> found;
  for (const auto& node : nodes) {
    const int fd = ::open(node.second.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) continue;
    v4l2_capability cap{};
    if (::ioctl(fd, VIDIOC_QUERYCAP, &cap) == 0) {
      const unsigned caps = (cap.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? cap.device_caps : cap.capabilities;
      if ((caps & V4L2_CAP_VIDEO_CAPTURE) != 0) {
        const char* card = reinterpret_cast<const char*>(cap.card);
        found.push_back({node.second, std::string(card, strnlen(card, sizeof cap.card))});
      }
    }
    ::close(fd);
  }
  return found;
}

std::optional<std::vector<std::string>> ListVideoCaptureDevices() {
  const auto nodes = ListVideoCaptureNodes();
  if (!nodes) return std::nullopt;
  std::vector<std::string> names;
  for (const VideoCaptureNode& n : *nodes) names.push_back(n.card);
  return names;
}

std::vector<AudioCaptureDevice> ParseAlsaPcmList(const std::string& text) {
  // "00-01: id : name : playback 1 : capture 1"
  std::vector<AudioCaptureDevice> out;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line) && out.size() < 256) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t pos; (pos = line.find(" : ", start)) != std::string::npos; start = pos + 3)
      parts.push_back(line.substr(start, pos - start));
    parts.push_back(line.substr(start));
    if (parts.size() < 3) continue;
    for (size_t i = 2; i < parts.size(); ++i) {
      const std::string field = Trim(parts[i]);
      if (field.rfind("capture ", 0) != 0) continue;
      AudioCaptureDevice d;
      d.name = Trim(parts[1]);
      d.inputPins = std::atoi(field.c_str() + 8);
      out.push_back(d);
    }
  }
  return out;
}

std::optional<std::vector<AudioCaptureDevice>> ListAudioCaptureDevices() {
  std::ifstream in("/proc/asound/pcm");
  if (!in) return std::nullopt;
  std::ostringstream text;
  text << in.rdbuf();
  return ParseAlsaPcmList(text.str());
}

std::string RunningProgramName() {
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return "";
  return exe.filename().string();
}

}  // namespace dravix::platform
