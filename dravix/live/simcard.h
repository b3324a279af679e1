// A simulated capture and I/O card set, for machines without the recorder's
// cards. Its layout comes from the profile "CardProfile.ini" in the program
// folder; without one it is one card of four chips with four inputs each.
//
// Profile (every key optional; numbers are decimal):
//
//   [Cards]
//   Count=1              capture cards (1..4)
//   Model=Z6616          model text (GetModelStr)
//   ModelNumber=0        recorder model number: 20/22 and 21/23 limit the
//                        frame rate, anything else does not
//   HardwareVersion=3
//   Server=1             0 = a client: the live cameras start at
//   LiveCameraIndexBase=0   LiveCameraIndexBase
//   Option1=0 2          chips that have option 1 (isOption(1, chip));
//                        likewise Option2.. Option9
//   AGC=                 chips with automatic gain control
//   IOCards=1            I/O cards for ZIOCardMgr (0..4)
//
//   [Card0]              one section per card, Card0 .. Card3
//   Chips=4              chips on the card (1..16)
//   ChipInputs=4         inputs per chip: 1, 4, 8 or 16
//   Contact=0
//   GPIOs=16             general-purpose I/O lines
//   Inputs=0000000000000000   alarm input states, one digit per line,
//   Relays=0000000000000000   relay states; '1' = active
//
//   [Mapping]            camera port -> "device code" (both decimal); a port
//   Port00=0 0           not listed keeps its default
//
// Chips are numbered across cards: card 1's first chip follows card 0's
// last. The default mapping gives camera port p the p-th input in card,
// chip, input order: device number chip * 2^s + input (s = 0, 2, 3 or 4 for
// 1, 4, 8 or 16 inputs per chip) and camera code chip * 100 + input.
// GetChannelMappingG reads "[MappingG]" when present, else "[Mapping]".
#pragma once

#include "dravix/live/cardlib.h"

#include <string>
#include <vector>

namespace dravix::live {

inline constexpr const char* kCardProfileName = "CardProfile.ini";
constexpr int kMaxCaptureCards = 4;

struct SimCardLayout {
  int chips = 4;
  int chipInputs = 4;
  int contact = 0;
  int gpios = 16;
  unsigned inputs = 0;  // bit i = input line i
  unsigned relays = 0;
};

struct SimCardProfile {
  std::vector<SimCardLayout> cards{SimCardLayout{}};
  std::string model = "Z6616";
  int modelNumber = 0;
  int hardwareVersion = 3;
  bool server = true;
  int liveCameraIndexBase = 0;
  int ioCards = 1;
  std::vector<std::vector<int>> options;  // options[k - 1] = chips with option k
  std::vector<int> agcChips;
  // port -> {device, code}; -1 where the default stands
  int mapB[kCameraCodeSize][2];
  int mapG[kCameraCodeSize][2];
  bool fromFile = false;  // false: the built-in default

  SimCardProfile();
};

// Reads `path`; a missing file gives the built-in default. Out-of-range
// numbers are clamped to the ranges documented above.
SimCardProfile LoadCardProfile(const std::string& path);

// The shift of a chip with `inputs` inputs in a device number.
int ChipShift(int inputs);

class ZSimCard : public ZCardLibrary {
 public:
  explicit ZSimCard(SimCardProfile profile);

  const SimCardProfile& profile() const { return profile_; }
  bool watchdogRunning() const { return watchdogRunning_; }
  int watchdogFeeds() const { return watchdogFeeds_; }

  int initial() override;
  int GSetWatchDog(int card, int seconds) override;
  int GStartWatchDog() override;
  int GStopWatchDog() override;
  int GResetWatchDog() override;
  void SetResetWatchDogTime(int seconds) override;
  int GetCardNumber() override;
  int isOption(int kind, int chip) override;
  int GetOption(int index) override;
  int GetChipIDOfCard(int card) override;
  int GetChipsOfCard(int card) override;
  LONG BT878Create(int chip) override;
  LONG BT878Close(int chip) override;
  LONG BT878WriteGPIO(unsigned int bits, int card, int chip) override;
  int BT878ReadGPIO(unsigned int mask, int card, int chip) override;
  LONG SetZeploIO(unsigned int bits, int card, int chip) override;
  int GetZeploIO(unsigned int mask, int card, int chip) override;
  int GetHardwareVersion() override;
  bool IsAGC(int chip) override;
  int GetEachChipChannels(int card) override;
  int GetCardChannels(int card) override;
  int GetContact(int card) override;
  int GetGPIOsOfCard(int card) override;
  int GetTotalChannels() override;
  bool isServer() override;
  int GetLiveCameraIndexBase() override;
  void GetModelStr(char* out) override;
  void GetChannelMappingB(int* portMap, int* cameraCodes) override;
  void GetChannelMappingG(int* portMap, int* cameraCodes) override;
  int isChipTypeByChannel(int channel, int inputs) override;
  int GetModelNumber() override;

 private:
  const SimCardLayout* Card(int card) const;
  void FillMapping(const int (&overrides)[kCameraCodeSize][2], int* portMap, int* cameraCodes) const;
  // The chip behind the p-th input counted across cards (with the chip's
  // input count and the input on it); -1 past the end.
  int ChipOfPort(int port, int* inputsOfChip, int* input) const;

  SimCardProfile profile_;
  std::vector<int> openChips_;
  bool initialised_ = false;
  bool watchdogRunning_ = false;
  int watchdogSeconds_ = 0;
  int watchdogResetTime_ = 0;
  int watchdogFeeds_ = 0;
};

}  // namespace dravix::live
