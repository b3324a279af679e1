// The capture-card library as the rest of the system sees it: an abstract
// interface whose operations stand in the order the recorder's closed card
// library offers them, so that an implementation written against that
// library's slot order (a real driver binding or the simulated card of
// simcard.h) plugs in unchanged.
//
// Slots marked "unused" exist only to keep the order; they answer 0.
// Operations after GetGPIOsOfCard are the ones the channel manager imports
// from the card library by name.
#pragma once

#include "dravix/platform/wintypes.h"

namespace dravix::live {

// Sizes of the tables the mapping operations fill.
constexpr int kPortMapSize = 64;     // camera port -> device number
constexpr int kCameraCodeSize = 16;  // camera port -> major * 100 + minor

class ZCardLibrary {
 public:
  // 1
  virtual int Unused01() { return 0; }
  // 2: non-zero when the cards are ready.
  virtual int initial() = 0;
  // 3..7: the hardware watchdog.
  virtual int GSetWatchDog(int card, int seconds) = 0;
  virtual int GStartWatchDog() = 0;
  virtual int GStopWatchDog() = 0;
  virtual int GResetWatchDog() = 0;
  virtual void SetResetWatchDogTime(int seconds) = 0;
  // 8: capture cards present.
  virtual int GetCardNumber() = 0;
  // 9, 10: card options.
  virtual int isOption(int kind, int chip) = 0;
  virtual int GetOption(int index) = 0;
  // 11
  virtual int Unused11() { return 0; }
  // 12: number of the card's first chip; 13: chips on the card.
  virtual int GetChipIDOfCard(int card) = 0;
  virtual int GetChipsOfCard(int card) = 0;
  // 14..19: direct chip access and the GPIO lines.
  virtual LONG BT878Create(int chip) = 0;
  virtual LONG BT878Close(int chip) = 0;
  virtual LONG BT878WriteGPIO(unsigned int bits, int card, int chip) = 0;
  virtual int BT878ReadGPIO(unsigned int mask, int card, int chip) = 0;
  virtual LONG SetZeploIO(unsigned int bits, int card, int chip) = 0;
  virtual int GetZeploIO(unsigned int mask, int card, int chip) = 0;
  // 20: hardware revision; 21: automatic gain control.
  virtual int GetHardwareVersion() = 0;
  virtual bool IsAGC(int chip) = 0;
  // 22..27
  virtual int Unused22() { return 0; }
  virtual int Unused23() { return 0; }
  virtual int Unused24() { return 0; }
  virtual int Unused25() { return 0; }
  virtual int Unused26() { return 0; }
  virtual int Unused27() { return 0; }
  // 28: inputs per chip of the card (1, 4, 8 or 16); 29: inputs of the card.
  virtual int GetEachChipChannels(int card) = 0;
  virtual int GetCardChannels(int card) = 0;
  // 30
  virtual int Unused30() { return 0; }
  // 31: contact state of the card.
  virtual int GetContact(int card) = 0;
  // 32, 33
  virtual int Unused32() { return 0; }
  virtual int Unused33() { return 0; }
  // 34: general-purpose I/O lines of the card.
  virtual int GetGPIOsOfCard(int card) = 0;

  // Imported by name.
  virtual int GetTotalChannels() = 0;
  virtual bool isServer() = 0;
  virtual int GetLiveCameraIndexBase() = 0;
  // Copies the card model text (at most 31 characters and a NUL) to `out`.
  virtual void GetModelStr(char* out) = 0;
  // Fill kPortMapSize port-map entries and kCameraCodeSize camera codes;
  // entries without a camera are -1.
  virtual void GetChannelMappingB(int* portMap, int* cameraCodes) = 0;
  virtual void GetChannelMappingG(int* portMap, int* cameraCodes) = 0;
  // 1 when the chip behind camera port `channel` has `inputs` inputs.
  virtual int isChipTypeByChannel(int channel, int inputs) = 0;
  // The recorder model number (selects the frame-rate limits); 0 = none.
  virtual int GetModelNumber() = 0;

  virtual ~ZCardLibrary() = default;
};

}  // namespace dravix::live
