// The settings store's own rules: the frame-rate clamp by recorder model,
// derived readers, and the values kept in INI files.
#include "dravix/settings/setting.h"
#include "dravix/base/zfile.h"
#include "dravix/base/ztime.h"
#include "dravix/live/bt878utl.h"
#include "dravix/live/simcard.h"
#include "tests/config/option_fixture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

namespace dravix::test {
namespace {

using SettingTest = OptionHome;

TEST_F(SettingTest, FrameRateClampByModel) {
  struct Row {
    int model;
    int pal;  // limit, 0 = none
    int ntsc;
  };
  const Row table[] = {{0, 0, 0}, {20, 6, 8}, {21, 12, 15}, {22, 6, 8}, {23, 12, 15}, {24, 0, 0}};
  ISetting* s = ISetting::Instance();
  tagDSDVROPTION rec;
  s->LoadDVROption(rec);
  rec.dsCamera[0].bNTSC = 0;
  rec.dsCamera[0].bPAL = 1;
  rec.dsCamera[1].bNTSC = 1;
  rec.dsCamera[1].bPAL = 0;
  for (const Row& r : table) {
    live::SimCardProfile p;
    p.modelNumber = r.model;
    live::ZSimCard card(p);
    IBt878Utl::AttachCardLibrary(&card);
    rec.dsCamera[0].dsRecord.nFrameRate = 25;
    rec.dsCamera[1].dsRecord.nFrameRate = 30;
    s->SaveDVROption(rec);
    EXPECT_EQ(s->GetCaptureFrameRate(0), r.pal ? r.pal : 25) << r.model;
    EXPECT_EQ(s->GetCaptureFrameRate(1), r.ntsc ? r.ntsc : 30) << r.model;
    tagDSCAMERAOPTION cam;
    s->GetCameraInfo(cam, 0);
    EXPECT_EQ(cam.dsRecord.nFrameRate, r.pal ? r.pal : 25) << "kept";
    s->SetRecordingRate(1, 60);
    s->GetCameraInfo(cam, 1);
    EXPECT_EQ(cam.dsRecord.nFrameRate, r.ntsc ? r.ntsc : 60) << r.model;
    s->SetRecordingRate(1, 2);
    s->GetCameraInfo(cam, 1);
    EXPECT_EQ(cam.dsRecord.nFrameRate, 2);
    IBt878Utl::AttachCardLibrary(nullptr);
  }
}

TEST_F(SettingTest, DerivedReadersAndBounds) {
  ISetting* s = ISetting::Instance();
  tagDSDVROPTION rec;
  s->LoadDVROption(rec);
  const BOOL media[][2] = {{1, 1}, {0, 1}, {2, 0}};  // ZMedia, MJPEG of cameras 2-4
  for (int n = 0; n < 3; ++n) {
    rec.dsCamera[2 + n].dsRecord.bZMedia = media[n][0];
    rec.dsCamera[2 + n].dsRecord.bMJPEG = media[n][1];
  }
  rec.dsGeneral.nCOMPort[3] = 9;
  rec.dsView[2].nLookTime[5] = 33;
  s->SaveDVROption(rec);
  EXPECT_EQ(s->GetCompressor(2), 1);
  EXPECT_EQ(s->GetCompressor(3), 2);
  EXPECT_EQ(s->GetCompressor(4), 0);  // only a ZMedia switch of exactly 1 counts
  EXPECT_EQ(s->GetModemPort(3), 9);
  EXPECT_EQ(s->GetModemPort(4), 0);
  EXPECT_EQ(s->GetModemPort(-1), 0);
  s->SaveImageFilterValue(0, 6, 44);
  s->SaveImageFilterValue(0, 7, 55);
  EXPECT_EQ(s->GetImageFilterValue(0, 6), 44);
  EXPECT_EQ(s->GetImageFilterValue(0, 7), 0);
  // QUIRK(interface-spelling): the names as the interface spells them, and
  // what they really touch.
  s->EnableVisualDetection(1, 0);
  s->DectionMotion(1, 1);
  tagDSDVROPTION after;
  s->LoadDVROption(after);
  EXPECT_EQ(after.dsCamera[1].bVisual, 1);
  int port = -1;
  s->GetNATWebPort(port);
  EXPECT_EQ(port, rec.dsGeneral.nWebPort);
  EXPECT_EQ(s->IsRemoveAccess(), s->IsRemoteAccess());
  // Saved records reach the document.
  EXPECT_EQ(LoadFresh()->dsDVROption.dsView[2].nLookTime[5], 33);
}

TEST_F(SettingTest, IniBackedValues) {
  ISetting* s = ISetting::Instance();
  EXPECT_EQ(s->GetWndPos(111).right, 100);
  s->SaveWndPos(118, RECT{1, 2, 300, 400});
  EXPECT_NE(ReadFile(Path("WndPos.ini")).find("C2_V08_POS=1 2 300 400"), std::string::npos);
  EXPECT_EQ(s->GetWndPos(118).bottom, 400);
  s->SaveWndPos(119, RECT{1, 2, 3, 4});
  EXPECT_EQ(ReadFile(Path("WndPos.ini")).find("1 2 3 4"), std::string::npos);

  EXPECT_EQ(SysTimeToZMTime(s->LoadClearEventTime()), 20020606143639000LL);
  EXPECT_EQ(s->GetRecycleTime(), 5);
  WriteFile("LiveVar.ini", "[Clear Event Time]\r\nTime=2011/12/03   04:05:06\r\n[RECYCLETIME]\r\nTIME=9\r\n");
  EXPECT_EQ(SysTimeToZMTime(s->LoadClearEventTime()), 20111203040506000LL);
  EXPECT_EQ(s->GetRecycleTime(), 9);
  s->SaveClearEventTime();
  const std::string saved = ReadFile(Path("LiveVar.ini"));
  const size_t at = saved.find("Time=");
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(saved.substr(at + 5 + 10, 3), "   ");

  int cd = 0, msg = 9, reboot = 0;
  s->GetCapRecoverSetting(cd, msg, reboot);
  EXPECT_EQ(std::tuple(cd, msg, reboot), std::tuple(30, 0, 1));

  char buf[260];
  const std::string box = Path("spool/");
  s->PutMailBoxDirectory(box.c_str());
  EXPECT_TRUE(std::filesystem::is_directory(box + "MailBox"));
  s->GetMailBoxDirectory(buf, 8);
  EXPECT_EQ(std::string(buf), box.substr(0, 7));
}

TEST_F(SettingTest, StartUpOpensIOCardsAndWritesTheAudioDeviceList) {
  WriteFile(live::kCardProfileName, "[Cards]\nIOCards=3\n[Card0]\nChipInputs=8\n");
  ISetting* s = ISetting::Instance();
  EXPECT_EQ(s->GetChipType(), 8);
  EXPECT_EQ(s->GetVideoChannels(), 16);  // not the live program
  const std::string list = ReadFile(Path(config::kAudioDeviceFile));
  ASSERT_GE(list.size(), 4u);
  EXPECT_EQ(list.size(), 4u + 80u * static_cast<unsigned char>(list[0]));
  EXPECT_EQ(s->CreateAudDviceZMI(), 0);  // present: left alone
  s->DeviceClose();
  EXPECT_EQ(s->DeviceInit(), 3);
}

}  // namespace
}  // namespace dravix::test
