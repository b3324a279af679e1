// The simulated card: profile parsing, layout arithmetic, mapping tables,
// I/O lines, and IBt878Utl forwarding to whichever implementation is
// attached.
#include "dravix/live/bt878utl.h"
#include "dravix/live/iocardmgr.h"
#include "dravix/live/simcard.h"
#include "tests/support/test_home.h"

#include <gtest/gtest.h>

namespace dravix::live {
namespace {

using CardTest = test::TestHome;

TEST_F(CardTest, BuiltInDefaultIsOneCardOfFourChipsOfFourInputsAndClientsStartLater) {
  ZSimCard card(LoadCardProfile(Path(kCardProfileName)));
  EXPECT_FALSE(card.profile().fromFile);
  EXPECT_EQ(card.GetCardNumber(), 1);
  EXPECT_EQ(card.GetChipsOfCard(0), 4);
  EXPECT_EQ(card.GetEachChipChannels(0), 4);
  EXPECT_EQ(card.GetCardChannels(0), 16);
  EXPECT_EQ(card.GetTotalChannels(), 16);
  EXPECT_EQ(card.GetChipsOfCard(1), 0);
  int map[kPortMapSize];
  int codes[kCameraCodeSize];
  card.GetChannelMappingB(map, codes);
  // Port 6 is chip 1, input 2.
  EXPECT_EQ(map[6], (1 << 2) + 2);
  EXPECT_EQ(codes[6], 102);
  EXPECT_EQ(map[15], 15);
  EXPECT_EQ(map[16], -1);
  char model[32];
  card.GetModelStr(model);
  EXPECT_STREQ(model, "Z6616");

  // A client's cards start at the live index base.
  WriteFile(kCardProfileName, "[Cards]\nServer=0\nLiveCameraIndexBase=4\n");
  ZSimCard client(LoadCardProfile(Path(kCardProfileName)));
  client.GetChannelMappingB(map, codes);
  EXPECT_EQ(codes[0], 100);  // the fifth input: chip 1, input 0
  EXPECT_EQ(codes[11], 303);
  EXPECT_EQ(codes[12], -1);
}

TEST_F(CardTest, ProfileDescribesMixedCardsAndMappings) {
  WriteFile(kCardProfileName,
            "[Cards]\nCount=2\nModel=Z6612Q\nModelNumber=22\nHardwareVersion=2\nOption1=1 3\nAGC=2\n"
            "[Card0]\nChips=2\nChipInputs=8\nInputs=0110\n"
            "[Card1]\nChips=1\nChipInputs=16\nGPIOs=24\n"
            "[Mapping]\nPort03=40 1234\n[MappingG]\nPort00=9 77\n");
  ZSimCard card(LoadCardProfile(Path(kCardProfileName)));
  EXPECT_EQ(card.GetCardNumber(), 2);
  EXPECT_EQ(card.GetChipIDOfCard(0), 0);
  EXPECT_EQ(card.GetChipIDOfCard(1), 2);
  EXPECT_EQ(card.GetTotalChannels(), 32);
  EXPECT_EQ(card.GetHardwareVersion(), 2);
  EXPECT_EQ(card.GetModelNumber(), 22);
  EXPECT_EQ(card.GetGPIOsOfCard(1), 24);
  EXPECT_EQ(card.isOption(1, 3), 1);
  EXPECT_EQ(card.isOption(1, 2), 0);
  EXPECT_TRUE(card.IsAGC(2));
  EXPECT_EQ(card.isChipTypeByChannel(15, 8), 1);
  EXPECT_EQ(card.isChipTypeByChannel(16, 16), 1);

  int map[kPortMapSize];
  int codes[kCameraCodeSize];
  card.GetChannelMappingB(map, codes);
  EXPECT_EQ(map[9], (1 << 3) + 1);  // chip 1, input 1 on an 8-input chip
  EXPECT_EQ(codes[9], 101);
  EXPECT_EQ(map[3], 40);
  EXPECT_EQ(codes[3], 1234);
  EXPECT_EQ(map[0], 0);
  card.GetChannelMappingG(map, codes);
  EXPECT_EQ(map[0], 9);  // the G table has its own override
  EXPECT_EQ(codes[0], 77);
  EXPECT_EQ(map[3], 40);  // and falls back to the common one

  EXPECT_EQ(card.BT878ReadGPIO(0xF, 0, 0), 0x6);
  EXPECT_EQ(card.GetZeploIO(0x2, 0, 0), 0x2);
  EXPECT_EQ(card.BT878ReadGPIO(0xF, 5, 0), 0);
}

TEST_F(CardTest, HostileProfileValuesAreClamped) {
  WriteFile(kCardProfileName,
            "[Cards]\nCount=99\nModel=ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789\n"
            "[Card0]\nChips=-3\nChipInputs=5\n[Card3]\nChips=400\nChipInputs=16\n"
            "[Mapping]\nPort00=999 1\nPort01=x y\n");
  ZSimCard card(LoadCardProfile(Path(kCardProfileName)));
  EXPECT_EQ(card.GetCardNumber(), kMaxCaptureCards);
  EXPECT_EQ(card.GetChipsOfCard(0), 1);
  EXPECT_EQ(card.GetEachChipChannels(0), 4);
  EXPECT_EQ(card.GetChipsOfCard(3), 16);
  char model[64];
  card.GetModelStr(model);
  EXPECT_EQ(std::string(model).size(), 31u);
  int map[kPortMapSize];
  int codes[kCameraCodeSize];
  card.GetChannelMappingB(map, codes);
  EXPECT_EQ(map[0], 0);  // out-of-range override ignored
  EXPECT_EQ(map[1], 1);
}

TEST_F(CardTest, WatchdogAndChipAccess) {
  ZSimCard card{SimCardProfile{}};
  EXPECT_EQ(card.GResetWatchDog(), 0);     // not running
  EXPECT_EQ(card.GSetWatchDog(3, 30), 0);  // no such card
  card.GStartWatchDog();
  EXPECT_EQ(card.GResetWatchDog(), 1);
  EXPECT_EQ(card.watchdogFeeds(), 1);
  card.GStopWatchDog();
  EXPECT_EQ(card.GResetWatchDog(), 0);
  EXPECT_EQ(card.BT878Create(3), 1);
  EXPECT_EQ(card.BT878Create(4), 0);
  EXPECT_EQ(card.BT878Close(3), 1);
  EXPECT_EQ(card.BT878Close(3), 0);
  EXPECT_EQ(card.BT878WriteGPIO(0x5, 0, 0), 1);
  EXPECT_EQ(card.profile().cards[0].relays, 0x5u);
}

TEST_F(CardTest, UtilityReadsTheProfileAndForwardsToAnAttachedLibrary) {
  WriteFile(kCardProfileName, "[Cards]\nHardwareVersion=7\n[Card0]\nChips=2\n");
  IBt878Utl* utl = IBt878Utl::Instance();
  EXPECT_EQ(utl->GetHardwareVersion(), 7);
  EXPECT_EQ(utl->GetTotalChannels(), 8);

  SimCardProfile p;
  p.cards = {SimCardLayout{3, 16, 5, 8, 0, 0}};
  p.model = "Other";
  ZSimCard other(p);
  IBt878Utl::AttachCardLibrary(&other);
  EXPECT_EQ(utl->GetEachChipChannels(0), 16);
  EXPECT_EQ(utl->GetContact(0), 5);
  IBt878Utl copy(*utl);
  EXPECT_EQ(copy.Implementation(), &other);
  IBt878Utl::AttachCardLibrary(nullptr);
  EXPECT_EQ(utl->GetHardwareVersion(), 7);
}

TEST_F(CardTest, IOCardsComeFromTheProfile) {
  WriteFile(kCardProfileName, "[Cards]\nIOCards=2\n");
  ZIOCardMgr* io = ZIOCardMgr::Instance();
  EXPECT_EQ(io->CardNum(), 2);
  io->SetDll_ID(7);
  LONG handle = 0;
  EXPECT_EQ(io->IOCardOpen(1, &handle), 1);
  EXPECT_EQ(handle, 2);
  EXPECT_EQ(io->IOCardOpen(2, &handle), 0);
  tagZIOCAED cards[kZIOMaxCards];
  int count = 0;
  io->IOCardInit(count, cards);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(cards[1].dwDllID, 7u);
  EXPECT_EQ(cards[0].nHandle, 0);
  unsigned long h = 2;
  tagZIOCARDATTRIBUTES attr;
  EXPECT_EQ(io->GetCardAIInfos(h, attr), 1);
  EXPECT_EQ(io->IOCardClose(2), 1);
  EXPECT_EQ(io->GetCardAIInfos(h, attr), 0);
}

}  // namespace
}  // namespace dravix::live
