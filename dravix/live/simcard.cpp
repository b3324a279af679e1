#include "dravix/live/simcard.h"

#include "dravix/platform/ini.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace dravix::live {
namespace {

int ReadInt(const std::string& file, const char* section, const char* key, int def, int lo, int hi) {
  const int v = static_cast<int>(platform::GetPrivateProfileIntA(section, key, def, file.c_str()));
  return std::clamp(v, lo, hi);
}

std::vector<int> ReadList(const std::string& file, const char* section, const char* key) {
  std::istringstream in(platform::ReadIniString(file, section, key, ""));
  std::vector<int> out;
  int v = 0;
  while (out.size() < 64 && in >> v) out.push_back(v);
  return out;
}

unsigned ReadBits(const std::string& file, const char* section, const char* key) {
  const std::string text = platform::ReadIniString(file, section, key, "");
  unsigned bits = 0;
  for (size_t i = 0; i < text.size() && i < 32; ++i)
    if (text[i] == '1') bits |= 1u << i;
  return bits;
}

void ReadMapping(const std::string& file, const char* section, int (&map)[kCameraCodeSize][2]) {
  for (int p = 0; p < kCameraCodeSize; ++p) {
    char key[16];
    std::snprintf(key, sizeof key, "Port%02d", p);
    std::istringstream in(platform::ReadIniString(file, section, key, ""));
    int device = -1;
    int code = -1;
    if (in >> device >> code && device >= 0 && device < kPortMapSize) {
      map[p][0] = device;
      map[p][1] = code;
    }
  }
}

bool ValidInputs(int n) { return n == 1 || n == 4 || n == 8 || n == 16; }

}  // namespace

SimCardProfile::SimCardProfile() {
  for (auto& m : mapB) m[0] = m[1] = -1;
  for (auto& m : mapG) m[0] = m[1] = -1;
}

int ChipShift(int inputs) {
  switch (inputs) {
    case 1:
      return 0;
    case 8:
      return 3;
    case 16:
      return 4;
    default:
      return 2;
  }
}

SimCardProfile LoadCardProfile(const std::string& path) {
  SimCardProfile p;
  if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
    std::fclose(f);
    p.fromFile = true;
  } else {
    return p;
  }
  const int count = ReadInt(path, "Cards", "Count", 1, 1, kMaxCaptureCards);
  p.model = platform::ReadIniString(path, "Cards", "Model", "Z6616").substr(0, 31);
  p.modelNumber = ReadInt(path, "Cards", "ModelNumber", 0, 0, 1000000);
  p.hardwareVersion = ReadInt(path, "Cards", "HardwareVersion", 3, 0, 1000000);
  p.server = ReadInt(path, "Cards", "Server", 1, 0, 1) == 1;
  p.liveCameraIndexBase = ReadInt(path, "Cards", "LiveCameraIndexBase", 0, 0, 64);
  p.ioCards = ReadInt(path, "Cards", "IOCards", 1, 0, 4);
  p.agcChips = ReadList(path, "Cards", "AGC");
  for (int k = 1; k <= 9; ++k) {
    char key[16];
    std::snprintf(key, sizeof key, "Option%d", k);
    p.options.push_back(ReadList(path, "Cards", key));
  }
  p.cards.clear();
  for (int c = 0; c < count; ++c) {
    char section[16];
    std::snprintf(section, sizeof section, "Card%d", c);
    SimCardLayout card;
    card.chips = ReadInt(path, section, "Chips", 4, 1, 16);
    card.chipInputs = ReadInt(path, section, "ChipInputs", 4, 1, 16);
    if (!ValidInputs(card.chipInputs)) card.chipInputs = 4;
    card.contact = ReadInt(path, section, "Contact", 0, -1000000, 1000000);
    card.gpios = ReadInt(path, section, "GPIOs", 16, 0, 32);
    card.inputs = ReadBits(path, section, "Inputs");
    card.relays = ReadBits(path, section, "Relays");
    p.cards.push_back(card);
  }
  ReadMapping(path, "Mapping", p.mapB);
  ReadMapping(path, "Mapping", p.mapG);
  ReadMapping(path, "MappingG", p.mapG);
  return p;
}

ZSimCard::ZSimCard(SimCardProfile profile) : profile_(std::move(profile)) {}

const SimCardLayout* ZSimCard::Card(int card) const {
  if (card < 0 || card >= static_cast<int>(profile_.cards.size())) return nullptr;
  return &profile_.cards[static_cast<size_t>(card)];
}

int ZSimCard::initial() {
  initialised_ = true;
  return 1;
}

int ZSimCard::GSetWatchDog(int card, int seconds) {
  if (Card(card) == nullptr || seconds < 0) return 0;
  watchdogSeconds_ = seconds;
  return 1;
}
int ZSimCard::GStartWatchDog() {
  watchdogRunning_ = true;
  return 1;
}
int ZSimCard::GStopWatchDog() {
  watchdogRunning_ = false;
  return 1;
}
int ZSimCard::GResetWatchDog() {
  if (!watchdogRunning_) return 0;
  ++watchdogFeeds_;
  return 1;
}
void ZSimCard::SetResetWatchDogTime(int seconds) { watchdogResetTime_ = seconds; }

int ZSimCard::GetCardNumber() { return static_cast<int>(profile_.cards.size()); }

int ZSimCard::isOption(int kind, int chip) {
  if (kind < 1 || kind > static_cast<int>(profile_.options.size())) return 0;
  const auto& chips = profile_.options[static_cast<size_t>(kind - 1)];
  return std::find(chips.begin(), chips.end(), chip) != chips.end() ? 1 : 0;
}

int ZSimCard::GetOption(int index) { return index == 0 ? profile_.modelNumber : 0; }

int ZSimCard::GetChipIDOfCard(int card) {
  if (Card(card) == nullptr) return -1;
  int first = 0;
  for (int c = 0; c < card; ++c) first += profile_.cards[static_cast<size_t>(c)].chips;
  return first;
}

int ZSimCard::GetChipsOfCard(int card) {
  const SimCardLayout* c = Card(card);
  return c == nullptr ? 0 : c->chips;
}

LONG ZSimCard::BT878Create(int chip) {
  int total = 0;
  for (const auto& c : profile_.cards) total += c.chips;
  if (chip < 0 || chip >= total) return 0;
  if (std::find(openChips_.begin(), openChips_.end(), chip) == openChips_.end()) openChips_.push_back(chip);
  return 1;
}

LONG ZSimCard::BT878Close(int chip) {
  const auto it = std::find(openChips_.begin(), openChips_.end(), chip);
  if (it == openChips_.end()) return 0;
  openChips_.erase(it);
  return 1;
}

LONG ZSimCard::BT878WriteGPIO(unsigned int bits, int card, int /*chip*/) {
  if (card < 0 || card >= static_cast<int>(profile_.cards.size())) return 0;
  profile_.cards[static_cast<size_t>(card)].relays = bits;
  return 1;
}

int ZSimCard::BT878ReadGPIO(unsigned int mask, int card, int /*chip*/) {
  const SimCardLayout* c = Card(card);
  return c == nullptr ? 0 : static_cast<int>(c->inputs & mask);
}

LONG ZSimCard::SetZeploIO(unsigned int bits, int card, int chip) { return BT878WriteGPIO(bits, card, chip); }
int ZSimCard::GetZeploIO(unsigned int mask, int card, int chip) { return BT878ReadGPIO(mask, card, chip); }

int ZSimCard::GetHardwareVersion() { return profile_.hardwareVersion; }

bool ZSimCard::IsAGC(int chip) {
  return std::find(profile_.agcChips.begin(), profile_.agcChips.end(), chip) != profile_.agcChips.end();
}

int ZSimCard::GetEachChipChannels(int card) {
  const SimCardLayout* c = Card(card);
  return c == nullptr ? 0 : c->chipInputs;
}

int ZSimCard::GetCardChannels(int card) {
  const SimCardLayout* c = Card(card);
  return c == nullptr ? 0 : c->chips * c->chipInputs;
}

int ZSimCard::GetContact(int card) {
  const SimCardLayout* c = Card(card);
  return c == nullptr ? 0 : c->contact;
}

int ZSimCard::GetGPIOsOfCard(int card) {
  const SimCardLayout* c = Card(card);
  return c == nullptr ? 0 : c->gpios;
}

int ZSimCard::GetTotalChannels() {
  int total = 0;
  for (const auto& c : profile_.cards) total += c.chips * c.chipInputs;
  return total;
}

bool ZSimCard::isServer() { return profile_.server; }
int ZSimCard::GetLiveCameraIndexBase() { return profile_.liveCameraIndexBase; }

void ZSimCard::GetModelStr(char* out) {
  if (out == nullptr) return;
  const size_t n = std::min<size_t>(profile_.model.size(), 31);
  std::memcpy(out, profile_.model.data(), n);
  out[n] = '\0';
}

int ZSimCard::ChipOfPort(int port, int* inputsOfChip, int* input) const {
  int chip = 0;
  for (const auto& c : profile_.cards) {
    const int span = c.chips * c.chipInputs;
    if (port < span) {
      *inputsOfChip = c.chipInputs;
      *input = port % c.chipInputs;
      return chip + port / c.chipInputs;
    }
    port -= span;
    chip += c.chips;
  }
  return -1;
}

void ZSimCard::FillMapping(const int (&overrides)[kCameraCodeSize][2], int* portMap, int* cameraCodes) const {
  if (portMap != nullptr)
    for (int i = 0; i < kPortMapSize; ++i) portMap[i] = -1;
  if (cameraCodes != nullptr)
    for (int i = 0; i < kCameraCodeSize; ++i) cameraCodes[i] = -1;
  int total = 0;
  for (const auto& c : profile_.cards) total += c.chips * c.chipInputs;
  // Client machines number their own cameras from the live index base.
  const int first = profile_.server ? 0 : profile_.liveCameraIndexBase;
  for (int port = 0; port < kCameraCodeSize && first + port < total; ++port) {
    int inputs = 4;
    int input = 0;
    const int chip = ChipOfPort(first + port, &inputs, &input);
    if (chip < 0) break;
    int device = (chip << ChipShift(inputs)) + input;
    int code = chip * 100 + input;
    if (overrides[port][0] >= 0) {
      device = overrides[port][0];
      code = overrides[port][1];
    }
    if (portMap != nullptr && device < kPortMapSize) portMap[port] = device;
    if (cameraCodes != nullptr) cameraCodes[port] = code;
  }
}

void ZSimCard::GetChannelMappingB(int* portMap, int* cameraCodes) { FillMapping(profile_.mapB, portMap, cameraCodes); }
void ZSimCard::GetChannelMappingG(int* portMap, int* cameraCodes) { FillMapping(profile_.mapG, portMap, cameraCodes); }

int ZSimCard::isChipTypeByChannel(int channel, int inputs) {
  if (channel < 0) return 0;
  int chipInputs = 0;
  int input = 0;
  return ChipOfPort(channel, &chipInputs, &input) >= 0 && chipInputs == inputs ? 1 : 0;
}

int ZSimCard::GetModelNumber() { return profile_.modelNumber; }

}  // namespace dravix::live
