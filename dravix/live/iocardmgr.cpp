#include "dravix/live/iocardmgr.h"

#include "dravix/base/zfile.h"
#include "dravix/live/simcard.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

// Never destroyed: other singletons (the settings store) close their cards
// from their own destructors at process exit, in an order no one controls.
ZIOCardMgr* ZIOCardMgr::Instance() {
  static ZIOCardMgr* const inst = new ZIOCardMgr();
  return inst;
}

int ZIOCardMgr::CardNum() {
  if (cards_ < 0)
    cards_ = std::clamp(dravix::live::LoadCardProfile(GetModulePath() + dravix::live::kCardProfileName).ioCards, 0,
                        kZIOMaxCards);
  return cards_;
}

void ZIOCardMgr::SetDll_ID(unsigned int id) { dllId_ = id; }

int ZIOCardMgr::IOCardOpen(unsigned long card, LONG* handle) {
  if (card >= static_cast<unsigned long>(CardNum())) return 0;
  open_[card] = true;
  cardDll_[card] = dllId_;
  if (handle != nullptr) *handle = static_cast<LONG>(card) + 1;
  return 1;
}

int ZIOCardMgr::IOCardInit(int& count, tagZIOCAED* const cards) {
  count = CardNum();
  if (cards == nullptr) return 1;
  for (int i = 0; i < count; ++i) {
    tagZIOCAED& c = cards[i];
    std::memset(&c, 0, sizeof c);
    c.dwDllID = cardDll_[i];
    c.nHandle = open_[i] ? i + 1 : 0;
    c.nInputs = 16;
    c.nOutputs = 16;
    std::snprintf(c.szName, sizeof c.szName, "ZIO%02d", i);
  }
  return 1;
}

int ZIOCardMgr::IOCardClose(int handle) {
  const int card = handle - 1;
  if (card < 0 || card >= kZIOMaxCards || !open_[card]) return 0;
  open_[card] = false;
  return 1;
}

int ZIOCardMgr::GetCardAIInfos(unsigned long& handle, tagZIOCARDATTRIBUTES& attributes) {
  const long card = static_cast<long>(handle) - 1;
  if (card < 0 || card >= kZIOMaxCards || !open_[card]) return 0;
  std::memset(&attributes, 0, sizeof attributes);
  attributes.nAIChannels = 8;
  attributes.nDIChannels = 16;
  attributes.nDOChannels = 16;
  std::snprintf(attributes.szModel, sizeof attributes.szModel, "ZIO-SIM");
  return 1;
}

int ZIOCardMgr::GetCardAIInfos(unsigned long& handle, tagZIOCARDATTRIBUTES& attributes, tagZIOAIVOLTAGEIN& volts,
                               int first, int count) {
  if (GetCardAIInfos(handle, attributes) == 0) return 0;
  for (int i = 0; i < count; ++i)
    if (first + i >= 0 && first + i < 16) volts.fVoltage[first + i] = 0.0f;
  return 1;
}
