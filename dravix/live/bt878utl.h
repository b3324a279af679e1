// IBt878Utl: the capture-card utility the host programs and the channel
// manager reach the cards through. It forwards every operation unchanged to
// one card-library implementation (cardlib.h); no logic of its own.
//
// The implementation is, unless a host or test attaches another, the
// simulated card of simcard.h built from the program folder's
// "CardProfile.ini" at first use.
#pragma once

#include "dravix/live/cardlib.h"

#include <memory>

class IBt878Utl {
 public:
  static IBt878Utl* Instance();

  // Replaces the implementation (not owned; must outlive its use). Null
  // returns to the simulated card, which is then rebuilt from the profile.
  static void AttachCardLibrary(dravix::live::ZCardLibrary* impl);

  IBt878Utl(const IBt878Utl&) = default;  // copies the implementation pointer
  IBt878Utl& operator=(const IBt878Utl&) = default;
  virtual ~IBt878Utl();
  virtual int GetHardwareVersion();

  dravix::live::ZCardLibrary* Implementation() const { return impl_; }

  int initial();
  int GSetWatchDog(int card, int seconds);
  int GStartWatchDog();
  int GStopWatchDog();
  int GResetWatchDog();
  void SetResetWatchDogTime(int seconds);
  int GetCardNumber();
  int isOption(int kind, int chip);
  int GetOption(int index);
  int GetChipIDOfCard(int card);
  int GetChipsOfCard(int card);
  LONG BT878Create(int chip);
  LONG BT878Close(int chip);
  LONG BT878WriteGPIO(unsigned int bits, int card, int chip);
  int BT878ReadGPIO(unsigned int mask, int card, int chip);
  LONG SetZeploIO(unsigned int bits, int card, int chip);
  int GetZeploIO(unsigned int mask, int card, int chip);
  bool IsAGC(int chip);
  int GetEachChipChannels(int card);
  int GetCardChannels(int card);
  int GetContact(int card);
  int GetGPIOsOfCard(int card);

  int GetTotalChannels();
  bool isServer();
  int GetLiveCameraIndexBase();
  void GetModelStr(char* out);
  void GetChannelMappingB(int* portMap, int* cameraCodes);
  void GetChannelMappingG(int* portMap, int* cameraCodes);
  int isChipTypeByChannel(int channel, int inputs);
  int GetModelNumber();

 private:
  explicit IBt878Utl(dravix::live::ZCardLibrary* impl) : impl_(impl) {}

  dravix::live::ZCardLibrary* impl_;
  static std::unique_ptr<IBt878Utl> sm_inst;
};
