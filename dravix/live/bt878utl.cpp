#include "dravix/live/bt878utl.h"

#include "dravix/base/single_instance.h"
#include "dravix/base/zfile.h"
#include "dravix/live/simcard.h"

using dravix::live::ZCardLibrary;
using dravix::live::ZSimCard;

std::unique_ptr<IBt878Utl> IBt878Utl::sm_inst;

namespace {

std::unique_ptr<ZSimCard>& SimulatedCard() {
  static std::unique_ptr<ZSimCard> card;
  return card;
}

ZCardLibrary* DefaultLibrary() {
  auto& card = SimulatedCard();
  if (!card)
    card = std::make_unique<ZSimCard>(dravix::live::LoadCardProfile(GetModulePath() + dravix::live::kCardProfileName));
  return card.get();
}

}  // namespace

IBt878Utl* IBt878Utl::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new IBt878Utl(DefaultLibrary()); });
}

void IBt878Utl::AttachCardLibrary(ZCardLibrary* impl) {
  if (impl == nullptr) {
    SimulatedCard().reset();
    impl = DefaultLibrary();
  }
  Instance()->impl_ = impl;
}

IBt878Utl::~IBt878Utl() = default;

int IBt878Utl::GetHardwareVersion() { return impl_->GetHardwareVersion(); }
int IBt878Utl::initial() { return impl_->initial(); }
int IBt878Utl::GSetWatchDog(int card, int seconds) { return impl_->GSetWatchDog(card, seconds); }
int IBt878Utl::GStartWatchDog() { return impl_->GStartWatchDog(); }
int IBt878Utl::GStopWatchDog() { return impl_->GStopWatchDog(); }
int IBt878Utl::GResetWatchDog() { return impl_->GResetWatchDog(); }
void IBt878Utl::SetResetWatchDogTime(int seconds) { impl_->SetResetWatchDogTime(seconds); }
int IBt878Utl::GetCardNumber() { return impl_->GetCardNumber(); }
int IBt878Utl::isOption(int kind, int chip) { return impl_->isOption(kind, chip); }
int IBt878Utl::GetOption(int index) { return impl_->GetOption(index); }
int IBt878Utl::GetChipIDOfCard(int card) { return impl_->GetChipIDOfCard(card); }
int IBt878Utl::GetChipsOfCard(int card) { return impl_->GetChipsOfCard(card); }
LONG IBt878Utl::BT878Create(int chip) { return impl_->BT878Create(chip); }
LONG IBt878Utl::BT878Close(int chip) { return impl_->BT878Close(chip); }
LONG IBt878Utl::BT878WriteGPIO(unsigned int bits, int card, int chip) {
  return impl_->BT878WriteGPIO(bits, card, chip);
}
int IBt878Utl::BT878ReadGPIO(unsigned int mask, int card, int chip) { return impl_->BT878ReadGPIO(mask, card, chip); }
LONG IBt878Utl::SetZeploIO(unsigned int bits, int card, int chip) { return impl_->SetZeploIO(bits, card, chip); }
int IBt878Utl::GetZeploIO(unsigned int mask, int card, int chip) { return impl_->GetZeploIO(mask, card, chip); }
bool IBt878Utl::IsAGC(int chip) { return impl_->IsAGC(chip); }
int IBt878Utl::GetEachChipChannels(int card) { return impl_->GetEachChipChannels(card); }
int IBt878Utl::GetCardChannels(int card) { return impl_->GetCardChannels(card); }
int IBt878Utl::GetContact(int card) { return impl_->GetContact(card); }
int IBt878Utl::GetGPIOsOfCard(int card) { return impl_->GetGPIOsOfCard(card); }
int IBt878Utl::GetTotalChannels() { return impl_->GetTotalChannels(); }
bool IBt878Utl::isServer() { return impl_->isServer(); }
int IBt878Utl::GetLiveCameraIndexBase() { return impl_->GetLiveCameraIndexBase(); }
void IBt878Utl::GetModelStr(char* out) { impl_->GetModelStr(out); }
void IBt878Utl::GetChannelMappingB(int* portMap, int* cameraCodes) { impl_->GetChannelMappingB(portMap, cameraCodes); }
void IBt878Utl::GetChannelMappingG(int* portMap, int* cameraCodes) { impl_->GetChannelMappingG(portMap, cameraCodes); }
int IBt878Utl::isChipTypeByChannel(int channel, int inputs) { return impl_->isChipTypeByChannel(channel, inputs); }
int IBt878Utl::GetModelNumber() { return impl_->GetModelNumber(); }
