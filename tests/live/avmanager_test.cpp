// The channel and device manager over a simulated card and injected
// device lists: counting, device names, port map, audio passes, colour
// level, and the video sink.
#include "dravix/live/avmanager.h"
#include "dravix/base/zfile.h"
#include "dravix/live/bt878utl.h"
#include "dravix/live/simcard.h"
#include "dravix/log/ilog.h"
#include "dravix/platform/registry.h"
#include "tests/support/test_home.h"

#include <gtest/gtest.h>

#include <cstring>

namespace dravix::live {
namespace {

// A simulated card that counts how often the camera total is asked for.
class CountingCard : public ZSimCard {
 public:
  using ZSimCard::ZSimCard;
  int GetTotalChannels() override {
    ++totalCalls;
    return ZSimCard::GetTotalChannels();
  }
  int initial() override { return failInitial ? 0 : ZSimCard::initial(); }
  int totalCalls = 0;
  bool failInitial = false;
};

SimCardProfile Layout(std::vector<SimCardLayout> cards, int hardwareVersion = 3) {
  SimCardProfile p;
  p.cards = std::move(cards);
  p.hardwareVersion = hardwareVersion;
  return p;
}

// A "Zep" device name with the chip at 27 (one or two digits) and the input
// at 36, or 37 after a two-digit chip.
std::string ZepName(const char* chip, char input) {
  std::string s = "Zep Capture Device --------";  // 27 characters
  s += chip;
  while (s.size() < (std::strlen(chip) == 2 ? 37u : 36u)) s += '-';
  s += input;
  return s + " tail";
}

class AVManagerTest : public test::TestHome {
 protected:
  void Use(SimCardProfile p, std::vector<std::string> video, std::string program = "live") {
    card_ = std::make_unique<CountingCard>(std::move(p));
    IBt878Utl::AttachCardLibrary(card_.get());
    video_ = std::move(video);
    DeviceEnumerators e;
    e.videoInputs = [this]() { return video_; };
    e.audioInputs = [this]() { return audio_; };
    e.audioSetupOrder = [this]() { return setupOrder_; };
    e.programName = [program]() { return program; };
    SetDeviceEnumerators(e);
  }
  void TearDown() override {
    SetDeviceEnumerators({});
    TestHome::TearDown();
  }
  std::unique_ptr<CountingCard> card_;
  std::optional<std::vector<std::string>> video_;
  std::optional<std::vector<AudioInputDevice>> audio_ = std::vector<AudioInputDevice>{};
  std::vector<std::string> setupOrder_;
};

TEST(LiveProgramName, RecognisedByNameNotByPath) {
  EXPECT_TRUE(IsLiveProgramName("Live.exe"));
  EXPECT_TRUE(IsLiveProgramName("oldlive.exe.bak"));
  EXPECT_TRUE(IsLiveProgramName("LIVE"));
  EXPECT_FALSE(IsLiveProgramName("liveview"));
  EXPECT_FALSE(IsLiveProgramName("Player.exe"));
  EXPECT_FALSE(IsLiveProgramName("tests_live"));
}

TEST_F(AVManagerTest, OtherProgramsSeeSixteenWithoutAskingTheCards) {
  Use(Layout({{1, 4}}), {ZepName("0", '1')}, "Player.exe");
  IAVManager* m = IAVManager::Instance();
  EXPECT_EQ(m->GetVideoCount(), 16);
  EXPECT_EQ(card_->totalCalls, 0);
  EXPECT_EQ(m->Device(1).chip, -1);  // nothing enumerated
  EXPECT_FALSE(FileExists(Path(kGPIOInfoName).c_str()));
  EXPECT_EQ(m->GetVideo(15)->GetPort(), 15);
}

TEST_F(AVManagerTest, BackupAgentSeesNoCamerasAndLeavesTheCacheAlone) {
  Use(Layout({{2, 4}}), {});
  IAVManager* m = IAVManager::Instance();
  m->EntryBackupAgentMode(1);
  EXPECT_EQ(m->GetVideoCount(), 0);
  EXPECT_EQ(card_->totalCalls, 0);
  EXPECT_EQ(m->GetCameraID(0, 0), -1);  // nothing counted yet
  m->EntryBackupAgentMode(0);
  EXPECT_EQ(m->GetVideoCount(), 8);
  EXPECT_EQ(m->GetVideoCount(), 8);
  EXPECT_EQ(card_->totalCalls, 1);  // cached
}

TEST_F(AVManagerTest, CountComesFromTheCardClampedAndCachedBeforeTheChannels) {
  Use(Layout({{4, 4}, {4, 4}}), {});
  IAVManager* m = IAVManager::Instance();
  EXPECT_EQ(m->GetVideoCount(), 16);  // 32 on the cards
  for (int port = 0; port < 16; ++port) {
    EXPECT_EQ(m->GetVideo(port)->GetPort(), port);
    EXPECT_EQ(m->GetVideo(port)->IsNightVision(), 1);
  }
  EXPECT_EQ(m->GetVideo(16)->GetPort(), -1);
  EXPECT_EQ(m->GetVideo(16)->IsNightVision(), 0);
  EXPECT_EQ(m->GetVideo(31), m->GetVideo(31));
  EXPECT_EQ(m->GetVideo(32), nullptr);
  EXPECT_EQ(m->GetFileAV(223)->GetIndex(), 223);
}

TEST_F(AVManagerTest, ClientCountStartsAtTheLiveIndexBase) {
  SimCardProfile p = Layout({{3, 4}});
  p.server = false;
  p.liveCameraIndexBase = 4;
  Use(p, {});
  EXPECT_EQ(IAVManager::Instance()->GetVideoCount(), 8);
}

TEST_F(AVManagerTest, NoDeviceListsGiveZeroVideoUncachedAndZeroAudioCached) {
  Use(Layout({{1, 4}}), {});
  video_ = std::nullopt;
  audio_ = std::nullopt;
  IAVManager* m = IAVManager::Instance();
  EXPECT_EQ(m->GetVideoCount(), 0);
  EXPECT_EQ(m->GetAudioCount(), 0);
  video_ = std::vector<std::string>{};
  audio_ = std::vector<AudioInputDevice>{{"Mic", 1}};
  EXPECT_EQ(m->GetVideoCount(), 4);
  EXPECT_EQ(m->GetAudioCount(), 0);
}

TEST_F(AVManagerTest, ZepNamesWithOneAndTwoDigitChips) {
  Use(Layout({{4, 4}}), {ZepName("3", '2'), ZepName("12", '3'), "Zep short", ZepName("x", '1'), "USB Cam"});
  IAVManager* m = IAVManager::Instance();
  m->GetVideoCount();
  EXPECT_EQ(m->Device(14).chip, 3);
  EXPECT_EQ(m->Device(14).input, 2);
  EXPECT_STREQ(m->Device(14).name, ZepName("3", '2').c_str());
  EXPECT_EQ(m->Device(51).chip, 12);
  EXPECT_EQ(m->Device(51).input, 3);
  int filled = 0;
  for (int d = 0; d < kDeviceEntries; ++d) filled += m->Device(d).chip >= 0;
  EXPECT_EQ(filled, 2);
  EXPECT_EQ(m->GetChipFromPort(14), 3);  // default map: port 14 -> device 14
  EXPECT_STREQ(m->GetDeviceName(14), ZepName("3", '2').c_str());
  EXPECT_EQ(m->GetChipFromPort(0), -1);   // mapped to a device nobody named
  EXPECT_EQ(m->GetChipFromPort(20), -1);  // unmapped
}

TEST_F(AVManagerTest, ZMCChipStandsForEveryInputOfAnEightInputChip) {
  Use(Layout({{2, 8}}), {"ZMCap3R Capture - Chip 1"});
  IAVManager* m = IAVManager::Instance();
  m->GetVideoCount();
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(m->Device(8 + i).chip, 1);
    EXPECT_EQ(m->Device(8 + i).input, i);
    EXPECT_EQ(std::string(m->Device(8 + i).name), "ZMCap3R Capture - Chip 1 Channel " + std::to_string(i));
  }
  EXPECT_EQ(m->Device(7).chip, -1);
  EXPECT_EQ(m->Device(16).chip, -1);
}

TEST_F(AVManagerTest, ZMCChipBeyondTheFirstCardTakesTheNextCardsInputs) {
  Use(Layout({{1, 4}, {1, 16}}), {"ZMCap2R Capture - Chip0", "ZMCap2R Capture - Chip1"});
  IAVManager* m = IAVManager::Instance();
  m->GetVideoCount();
  EXPECT_EQ(m->Device(3).input, 3);
  EXPECT_EQ(m->Device(4).chip, -1);
  EXPECT_EQ(m->Device(16).chip, 1);  // chip 1 << 4
  EXPECT_EQ(m->Device(31).input, 15);
  EXPECT_STREQ(m->Device(31).name, "ZMCap2R Capture - Chip1 Channel 15");
}

TEST_F(AVManagerTest, CardLayoutFileModelLineAndCameraIds) {
  SimCardProfile p = Layout({{2, 4}, {3, 4}});
  p.model = "Z7731";
  p.options = {{1}};
  p.mapB[2][0] = 2;
  p.mapB[2][1] = 301;
  Use(p, {ZepName("1", '0')});
  ILog::Instance()->SetFilename("General.log");
  IAVManager* m = IAVManager::Instance();
  EXPECT_EQ(m->GetCameraID(3, 1), -1);  // not counted yet
  m->GetVideoCount();
  EXPECT_EQ(ReadFile(Path(kGPIOInfoName)), std::string("\x02\x00\x00\x00\x00\x02", 6));
  EXPECT_NE(ReadFile(Path("General.log")).find("DVRModel = Z7731\r\n"), std::string::npos);
  EXPECT_EQ(m->ChipOption(4), 1);  // device 4 is chip 1
  EXPECT_EQ(m->ChipOption(0), 0);
  EXPECT_EQ(m->GetCameraID(3, 1), 2);  // the lowest port with the code: port 13 has it too
  EXPECT_EQ(m->CameraCode(13), 301);
  EXPECT_EQ(m->GetCameraID(1, 2), 6);
  EXPECT_EQ(m->GetCameraID(9, 9), -1);
}

// A card library that does not start gathers nothing, but the layout file is
// still truncated so the I/O side never reads a layout from an earlier run.
TEST_F(AVManagerTest, FailedCardStartTruncatesTheLayoutFile) {
  WriteFile(kGPIOInfoName, std::string("\x03\x00\x00\x00\x01\x02\x03", 7));
  Use(Layout({{2, 4}}), {ZepName("0", '0')});
  card_->failInitial = true;
  ILog::Instance()->SetFilename("General.log");
  IAVManager::Instance()->GetVideoCount();
  EXPECT_TRUE(FileExists(Path(kGPIOInfoName).c_str()));
  EXPECT_EQ(ReadFile(Path(kGPIOInfoName)), "");
  EXPECT_EQ(ReadFile(Path("General.log")).find("DVRModel"), std::string::npos);
}

// Eight-input chips on hardware before version 3 take the G table; everything else the B table.
struct TableCase {
  int hardware, chipInputs, port0, cameraOfCode777;
};
class PortTable : public AVManagerTest, public testing::WithParamInterface<TableCase> {};

TEST_P(PortTable, ChosenByChipWidthAndHardware) {
  SimCardProfile p = Layout({{2, GetParam().chipInputs}}, GetParam().hardware);
  p.mapG[0][0] = 5;
  p.mapG[0][1] = 777;
  Use(p, {});
  IAVManager* m = IAVManager::Instance();
  EXPECT_EQ(m->GetVideoCount(), 2 * GetParam().chipInputs);
  EXPECT_EQ(m->PortMap(0), GetParam().port0);
  EXPECT_EQ(m->GetCameraID(7, 77), GetParam().cameraOfCode777);
}

INSTANTIATE_TEST_SUITE_P(Live, PortTable,
                         testing::Values(TableCase{2, 8, 5, 0}, TableCase{3, 8, 0, -1}, TableCase{1, 4, 0, -1}));

TEST_F(AVManagerTest, AudioPassesAndExclusions) {
  Use(Layout({{1, 4}}), {});
  audio_ = std::vector<AudioInputDevice>{
      {"HDA Intel PCH: ALC892 Analog", 1},
      {"ZMCap2R Audio Capture 1", 1},        // the recorder's own: second pass
      {"vad WAVE", 1},                       // never
      {"USB Digital Audio", 1},              // never
      {"\xBC\xC6\xA6\xEC Mic", 1},           // Big5 "digital": never
      {"Bt878-ZM Audio Capture Chip 0", 1},  // own, not listed
      {"Loopback", 0},                       // no input pins
      {"Webcam Mic", 2},
  };
  setupOrder_ = {"ZMAud3R Audio Capture #2", "ZMCap2R Audio Capture 1", "ZMCap2R Audio Capture Digital",
                 "Something else"};
  IAVManager* m = IAVManager::Instance();
  ASSERT_EQ(m->GetAudioCount(), 4);
  EXPECT_STREQ(m->GetAuioDeviceName(0), "HDA Intel PCH: ALC892 Analog");
  EXPECT_STREQ(m->GetAuioDeviceName(1), "Webcam Mic");
  EXPECT_STREQ(m->GetAuioDeviceName(2), "ZMAud3R Audio Capture #2");
  EXPECT_STREQ(m->GetAuioDeviceName(3), "ZMCap2R Audio Capture 1");
  audio_ = std::vector<AudioInputDevice>{};
  EXPECT_EQ(m->GetAudioCount(), 4);  // cached
}

TEST_F(AVManagerTest, AudioListStopsAtThirtyTwo) {
  Use(Layout({{1, 4}}), {});
  audio_ = std::vector<AudioInputDevice>{};
  for (int i = 0; i < 40; ++i) audio_->push_back({"Mic " + std::to_string(i), 1});
  setupOrder_ = {"ZMCap2R Audio Capture"};
  IAVManager* m = IAVManager::Instance();
  EXPECT_EQ(m->GetAudioCount(), 32);
  EXPECT_STREQ(m->GetAuioDeviceName(31), "Mic 31");
}

TEST_F(AVManagerTest, QuickDisplayWritesTheColourLevel) {
  Use(Layout({{1, 4}}), {});
  IAVManager* m = IAVManager::Instance();
  const std::string store = Path(platform::kRegistryFileName);
  auto level = [&] { return platform::RegistryGetDword(store, kColorLevelRoot, kColorLevelKey, kColorLevelValue); };
  EXPECT_EQ(m->QuickDisplay(1, 2), 1);
  EXPECT_EQ(level(), 2u);
  EXPECT_EQ(m->QuickDisplay(0, 2), 1);
  EXPECT_EQ(level(), 0u);
  m->QuickDisplay(1, 1);
  EXPECT_EQ(m->QuickDisplay(1, 3), 1);
  EXPECT_EQ(level(), 1u);  // rejected, unchanged
}

TEST_F(AVManagerTest, QSeriesAndQModelFollowTheFirstChip) {
  struct Case {
    int chipInputs;
    const char* model;
    int qSeries, qModel;
  } cases[] = {{1, "Z6616", 1, 1}, {1, "Z6612Q", 0, 1}, {8, "Z6616", 0, 1}, {16, "Z6616", 0, 1}, {4, "Z6616", 0, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.chipInputs << " inputs, " << c.model);
    SimCardProfile p = Layout({{4, c.chipInputs}});
    p.model = c.model;
    Use(p, {});
    EXPECT_EQ(IAVManager::Instance()->IsQSerise(), c.qSeries);
    EXPECT_EQ(IAVManager::Instance()->IsQModel(), c.qModel);
  }
}

TEST_F(AVManagerTest, ChannelsNeedTheSink) {
  Use(Layout({{1, 4}}), {});
  IAVManager* m = IAVManager::Instance();
  IZMVideoRenderChannel* ch = nullptr;
  EXPECT_EQ(m->CreateChannel(&ch), E_FAIL);
  EXPECT_EQ(m->DestroyChannel(nullptr), E_FAIL);
  SetVideoRendererFactory([]() -> IZMMultiChannelVideoRenderer* { return nullptr; });
  EXPECT_EQ(m->InitializeVideoSink(), E_FAIL);
  EXPECT_EQ(m->VideoSink(), nullptr);
  SetVideoRendererFactory({});
  EXPECT_EQ(m->InitializeVideoSink(), S_OK);
  IZMMultiChannelVideoRenderer* sink = m->VideoSink();
  EXPECT_EQ(m->InitializeVideoSink(), S_OK);
  EXPECT_EQ(m->VideoSink(), sink);
  EXPECT_EQ(m->CreateChannel(nullptr), E_FAIL);
  ASSERT_EQ(m->CreateChannel(&ch), S_OK);
  EXPECT_EQ(sink->ActiveChannels(), 1);
  EXPECT_EQ(m->DestroyChannel(ch), S_OK);
  EXPECT_EQ(m->DestroyChannel(ch), E_INVALIDARG);
  EXPECT_EQ(sink->ActiveChannels(), 0);
  EXPECT_EQ(m->IsUseFxVideoSink(), 1);
}

}  // namespace
}  // namespace dravix::live
