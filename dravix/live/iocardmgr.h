// ZIOCardMgr: the I/O cards (alarm inputs, relay outputs, analogue inputs).
// Without the recorder's I/O card library this is a simulated set: the
// number of cards is "IOCards" of "CardProfile.ini" (simcard.h), each with
// 16 digital inputs, 16 relays and 8 analogue inputs reading 0 V.
//
// The instance lives until the process ends (it is never destroyed, so
// other singletons may close their cards from their destructors).
// Not thread-safe: the settings store opens and closes the cards from the
// thread that builds it.
#pragma once

#include "dravix/platform/wintypes.h"

#include <memory>

constexpr int kZIOMaxCards = 4;

// One card as IOCardInit reports it.
struct tagZIOCAED {
  DWORD dwDllID;  // driver the card was selected with (SetDll_ID)
  LONG nHandle;   // open handle, 0 when closed
  LONG nInputs;   // digital inputs
  LONG nOutputs;  // relay outputs
  char szName[32];
};

struct tagZIOCARDATTRIBUTES {
  LONG nAIChannels;  // analogue inputs
  LONG nDIChannels;  // digital inputs
  LONG nDOChannels;  // relays
  char szModel[32];
};

struct tagZIOAIVOLTAGEIN {
  float fVoltage[16];
};

class ZIOCardMgr {
 public:
  static ZIOCardMgr* Instance();

  ZIOCardMgr(const ZIOCardMgr&) = default;
  ZIOCardMgr& operator=(const ZIOCardMgr&) = default;
  ~ZIOCardMgr() = default;

  int CardNum();
  // Selects the driver of the cards opened next.
  void SetDll_ID(unsigned int id);
  // Opens card `card`; fills `*handle` (card + 1) and returns 1, or 0 for a
  // card that does not exist.
  int IOCardOpen(unsigned long card, LONG* handle);
  // Fills up to kZIOMaxCards entries of `cards` and sets `count`; returns 1.
  int IOCardInit(int& count, tagZIOCAED* const cards);
  int IOCardClose(int handle);
  // The attributes of the card with `handle`; 1, or 0 for a bad handle.
  int GetCardAIInfos(unsigned long& handle, tagZIOCARDATTRIBUTES& attributes);
  // The same, plus the voltages of analogue inputs first..first+count-1.
  int GetCardAIInfos(unsigned long& handle, tagZIOCARDATTRIBUTES& attributes, tagZIOAIVOLTAGEIN& volts, int first,
                     int count);

  int IsOpen(int card) const { return card >= 0 && card < kZIOMaxCards && open_[card] ? 1 : 0; }

 private:
  ZIOCardMgr() = default;

  int cards_ = -1;  // read from the profile at first use
  unsigned int dllId_ = 0;
  unsigned int cardDll_[kZIOMaxCards] = {};
  bool open_[kZIOMaxCards] = {};
};
