// The multi-channel video renderer (the "video sink") every channel draws
// into, and the factory the channel manager makes it with.
//
// The built-in renderer keeps the set of channels it made and which of them
// are added; it has no display to draw on. A host with a display attaches
// its own factory (SetVideoRendererFactory) before the sink is created.
#pragma once

#include "dravix/platform/wintypes.h"

#include <functional>
#include <memory>

class IZMVideoRenderChannel {
 public:
  virtual ~IZMVideoRenderChannel() = default;
  virtual int ChannelId() const = 0;
};

class IZMMultiChannelVideoRenderer {
 public:
  virtual ~IZMMultiChannelVideoRenderer() = default;
  // Prepares the renderer; `flags` 0 = the defaults.
  virtual HRESULT Initialize(int flags) = 0;
  // Makes a channel owned by the renderer (valid until the renderer goes).
  virtual HRESULT CreateChannel(IZMVideoRenderChannel** out) = 0;
  // Adds a channel made by this renderer to the drawn set; E_INVALIDARG for
  // a foreign or already added channel.
  virtual HRESULT AddChannel(IZMVideoRenderChannel* channel) = 0;
  // Removes it from the drawn set; E_INVALIDARG when it is not in the set.
  virtual HRESULT RemoveChannel(IZMVideoRenderChannel* channel) = 0;
  // Channels in the drawn set.
  virtual int ActiveChannels() const = 0;
};

// Makes the renderer: the attached factory's, else the built-in one. S_OK,
// or E_FAIL when the factory made none (then *out is null).
HRESULT zmCreateMultiChannelVideoRenderer(IZMMultiChannelVideoRenderer** out);

namespace dravix::live {
// An empty function returns to the built-in renderer.
void SetVideoRendererFactory(std::function<IZMMultiChannelVideoRenderer*()> factory);
}  // namespace dravix::live
