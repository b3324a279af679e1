#include "dravix/live/videorenderer.h"

#include <algorithm>
#include <vector>

namespace {

class SetChannel final : public IZMVideoRenderChannel {
 public:
  explicit SetChannel(int id) : id_(id) {}
  int ChannelId() const override { return id_; }

 private:
  int id_;
};

class SetRenderer final : public IZMMultiChannelVideoRenderer {
 public:
  HRESULT Initialize(int /*flags*/) override {
    initialised_ = true;
    return S_OK;
  }
  HRESULT CreateChannel(IZMVideoRenderChannel** out) override {
    if (out == nullptr) return E_POINTER;
    if (!initialised_) return E_UNEXPECTED;
    made_.push_back(std::make_unique<SetChannel>(static_cast<int>(made_.size())));
    *out = made_.back().get();
    return S_OK;
  }
  HRESULT AddChannel(IZMVideoRenderChannel* channel) override {
    if (!Made(channel) || std::find(active_.begin(), active_.end(), channel) != active_.end()) return E_INVALIDARG;
    active_.push_back(channel);
    return S_OK;
  }
  HRESULT RemoveChannel(IZMVideoRenderChannel* channel) override {
    const auto it = std::find(active_.begin(), active_.end(), channel);
    if (it == active_.end()) return E_INVALIDARG;
    active_.erase(it);
    return S_OK;
  }
  int ActiveChannels() const override { return static_cast<int>(active_.size()); }

 private:
  bool Made(IZMVideoRenderChannel* c) const {
    return std::any_of(made_.begin(), made_.end(), [c](const auto& m) { return m.get() == c; });
  }
  bool initialised_ = false;
  std::vector<std::unique_ptr<SetChannel>> made_;
  std::vector<IZMVideoRenderChannel*> active_;
};

std::function<IZMMultiChannelVideoRenderer*()>& Factory() {
  static std::function<IZMMultiChannelVideoRenderer*()> f;
  return f;
}

}  // namespace

HRESULT zmCreateMultiChannelVideoRenderer(IZMMultiChannelVideoRenderer** out) {
  if (out == nullptr) return E_POINTER;
  *out = Factory() ? Factory()() : new SetRenderer();
  return *out != nullptr ? S_OK : E_FAIL;
}

namespace dravix::live {
void SetVideoRendererFactory(std::function<IZMMultiChannelVideoRenderer*()> factory) { Factory() = std::move(factory); }
}  // namespace dravix::live
