#include "dravix/recorder/capture_device.h"

#include "dravix/live/avmanager.h"

namespace dravix::recorder {

std::optional<CaptureDevice> CaptureDeviceOfCamera(int camera, const std::vector<platform::VideoCaptureNode>& nodes,
                                                   std::string* why) {
  auto none = [why](const std::string& text) -> std::optional<CaptureDevice> {
    if (why) *why = text;
    return std::nullopt;
  };
  IAVManager* manager = IAVManager::Instance();
  const int port = camera - 1;
  const int count = manager->GetVideoCount();
  if (port < 0 || port >= count)
    return none("the channel manager counts " + std::to_string(count) + " camera ports, and camera " +
                std::to_string(camera) + " is port " + std::to_string(port));
  const int device = manager->PortMap(port);
  if (device < 0 || device >= live::kDeviceEntries)
    return none("the channel manager maps no capture device to port " + std::to_string(port));
  const IAVManager::DeviceEntry& entry = manager->Device(device);
  if (entry.chip >= 0) {
    // "ZMCap2R Capture - Chip3 Channel 1" is input 1 of the node named
    // "ZMCap2R Capture - Chip3"; other chips' entries carry the node's name
    // (cut to the entry's size).
    std::string card = entry.name;
    const size_t channel = card.rfind(" Channel ");
    const bool multiInput = card.rfind("ZMC", 0) == 0 && channel != std::string::npos;
    if (multiInput) card.resize(channel);
    for (const platform::VideoCaptureNode& node : nodes)
      if (multiInput ? node.card == card : node.card.rfind(card, 0) == 0)
        return CaptureDevice{node.path, multiInput ? entry.input : -1};
    return none("port " + std::to_string(port) + " is capture device " + std::to_string(device) + " (" + entry.name +
                "), and no V4L2 device of that name is present");
  }
  if (static_cast<size_t>(device) >= nodes.size())
    return none("port " + std::to_string(port) + " is capture device " + std::to_string(device) +
                ", and the machine has " + (nodes.empty() ? std::string("no") : std::to_string(nodes.size())) +
                " V4L2 capture device" + (nodes.size() == 1 ? "" : "s"));
  return CaptureDevice{nodes[static_cast<size_t>(device)].path, -1};
}

}  // namespace dravix::recorder
