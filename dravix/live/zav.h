// The channel classes the channel manager owns: the live capture channel
// ZLiveAV (one camera port) and the playback channel ZFileAV. This is the
// part of them the manager relies on: construction, night vision and
// disconnection before deletion.
#pragma once

class ZAV {
 public:
  ZAV() = default;
  ZAV(const ZAV&) = delete;
  ZAV& operator=(const ZAV&) = delete;
  virtual ~ZAV() = default;

  // Detaches the channel from its source and renderer; safe to repeat.
  virtual void Disconnect() { connected_ = false; }
  bool IsConnected() const { return connected_; }

 private:
  bool connected_ = true;
};

class ZLiveAV : public ZAV {
 public:
  // port -1 = a channel bound to no camera.
  explicit ZLiveAV(int port) : port_(port) {}
  int GetPort() const { return port_; }
  bool IsBound() const { return port_ >= 0; }
  void EnableNightVision(int on) { nightVision_ = on == 1; }
  int IsNightVision() const { return nightVision_ ? 1 : 0; }

 private:
  int port_;
  bool nightVision_ = false;
};

class ZFileAV : public ZAV {
 public:
  explicit ZFileAV(int index) : index_(index) {}
  int GetIndex() const { return index_; }

 private:
  int index_;
};
