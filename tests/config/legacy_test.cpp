// Old binary option files, built here byte by byte from their layout
// description, migrated at start-up into the option document.
#include "dravix/base/zfile.h"
#include "dravix/config/legacy_options.h"
#include "dravix/settings/setting.h"
#include "tests/config/option_fixture.h"

#include <gtest/gtest.h>

#include <random>

namespace dravix::test {
namespace {

// Little-endian file bytes, appended field by field.
class Bytes {
 public:
  Bytes& I32(int32_t v) {
    for (int i = 0; i < 4; ++i) b_.push_back(static_cast<char>((static_cast<uint32_t>(v) >> (8 * i)) & 0xFF));
    return *this;
  }
  Bytes& Text(const std::string& s, size_t width) {
    std::string f = s.substr(0, width);
    f.resize(width, '\0');
    b_ += f;
    return *this;
  }
  Bytes& Zeros(size_t n) {
    b_.append(n, '\0');
    return *this;
  }
  const std::string& str() const { return b_; }
  size_t size() const { return b_.size(); }

 private:
  std::string b_;
};

// General fields common to the old layouts, after the version word:
// site name, seven words, recycle, event report, four words, modem list.
void OldGeneral(Bytes& b, const std::string& site) {
  b.Text(site, 32);
  b.I32(1).I32(600).I32(0).I32(1).I32(0).I32(0).I32(0);  // remote access, file size, ...
  b.I32(1).I32(0).I32(14).I32(1).I32(0).Zeros(4);        // recycle block
  b.Text("smtp.old", 260).Zeros(520).Zeros(24);          // event report
  b.I32(1).I32(8080).I32(1).I32(3);                      // web, port, reset, days
  b.I32(1).I32(1).I32(2).I32(3).I32(4);                  // modem list and ports
}

// A camera in the whole 3288-byte form: name, words up to the PTZ block,
// then the frame rate at 1308.
void WholeCamera(Bytes& b, int n) {
  Bytes c;
  c.Text("Old cam " + std::to_string(n), 32).Zeros(1308 - 32).I32(10 + n).Zeros(3288 - 1312);
  b.Text(c.str(), c.size());
}

// View table, selections, I/O cards, device table, map, user block.
void OldTail(Bytes& b) {
  Bytes view;
  view.Zeros(1024).I32(9).Zeros(60);  // view 0, layout 0 dwell 9 s
  b.Text(view.str(), 1088).Zeros(1088 * 5);
  b.I32(0).I32(1);
  b.Zeros(4 * 7564 + 16 * 156);
  b.Text("pic\\old.bmp", 260).Zeros(1484 - 260);
  b.Text("admin", 32).Zeros(356 - 32).I32(1);
}

class LegacyTest : public OptionHome {
 protected:
  std::string OptionFile() const { return Path(config::kLegacyDVROptionFile); }
};

TEST_F(LegacyTest, Version1500IsReadWholeAndDeleted) {
  Bytes b;
  b.I32(1500).Text("Site 1500", 32).Zeros(1732 - 36);
  for (int n = 0; n < 16; ++n) WholeCamera(b, n);
  b.Zeros(95472 - b.size());
  b.Text("Till 1", 32).Zeros(836 - 32).Zeros(15 * 836);
  ASSERT_EQ(b.size(), 108848u);
  WriteFile(config::kLegacyDVROptionFile, b.str());

  ISetting* s = ISetting::Instance();
  EXPECT_STREQ(s->GetSiteName(), "Site 1500");
  EXPECT_STREQ(s->GetCameraName(5), "Old cam 5");
  EXPECT_EQ(s->GetCaptureFrameRate(5), 15);
  tagDSPOSOPTION pos;
  s->GetPosInfo(pos, 0);
  EXPECT_STREQ(pos.szPosname, "Till 1");
  EXPECT_EQ(s->MigrationResult().files[0].layout, config::LegacyLayout::k1500);
  EXPECT_FALSE(FileExists(OptionFile().c_str()));

  // The next start finds only the document, which holds the values.
  auto doc = LoadFresh();
  EXPECT_STREQ(doc->dsDVROption.dsGeneral.szSiteName, "Site 1500");
  EXPECT_EQ(doc->dsDVROption.dsCamera[5].dsRecord.nFrameRate, 15);
  EXPECT_STREQ(doc->dsDVROption.dsPOS[0].szPosname, "Till 1");
}

TEST_F(LegacyTest, Version1100LeavesRestartTimeDynamicIPAndPOSAtDefaults) {
  Bytes b;
  b.I32(1100);
  OldGeneral(b, "Site 1100");
  for (int n = 0; n < 16; ++n) WholeCamera(b, n);
  OldTail(b);
  ASSERT_EQ(b.size(), 94668u);
  WriteFile(config::kLegacyDVROptionFile, b.str());

  ISetting* s = ISetting::Instance();
  EXPECT_STREQ(s->GetSiteName(), "Site 1100");
  EXPECT_EQ(s->IsRemoteAccess(), 1);
  EXPECT_EQ(s->GetWebPort(), 8080);
  int on = 0, days = 0;
  s->GetResetStatus(on, days);
  EXPECT_EQ(days, 3);
  EXPECT_EQ(s->IsGetListModem(), 1);
  EXPECT_EQ(s->GetModemPort(3), 4);
  EXPECT_EQ(s->GetCaptureFrameRate(15), 25);
  EXPECT_EQ(s->GetViewLoopTime(0, 0), 9);
  EXPECT_EQ(s->IsDirectAccess(), 1);
  tagMAPOPTION map;
  s->GetMapOption(map);
  EXPECT_STREQ(map.szMapFile, "pic\\old.bmp");
  // Not in the layout: the defaults stand.
  EXPECT_STREQ(s->GetDIPServer(), "127.0.0.1");
  tagDSGENERALOPTION g;
  s->GetGeneral(g);
  auto def = DefaultOption();
  EXPECT_EQ(std::memcmp(&g.stAutoResetTime, &def->dsDVROption.dsGeneral.stAutoResetTime, sizeof(SYSTEMTIME)), 0);
  tagDSPOSOPTION pos;
  s->GetPosInfo(pos, 7);
  EXPECT_EQ(std::memcmp(&pos, &def->dsDVROption.dsPOS[7], sizeof pos), 0);
  EXPECT_FALSE(s->MigrationResult().files[0].keptDefaults.empty());
  EXPECT_FALSE(FileExists(OptionFile().c_str()));
}

TEST_F(LegacyTest, Version1200ReadsTheOlderCameraFieldByField) {
  Bytes b;
  b.I32(1200);
  OldGeneral(b, "Site 1200");
  b.I32(1).I32(99).Text("dip.example", 260).Text("acct", 260).Text("pw", 260);
  for (int n = 0; n < 16; ++n) {
    b.Text("Cam1200 " + std::to_string(n), 32);
    for (int i = 0; i < 13; ++i) b.I32(i == 11 ? 2 : 0);  // record mode at 76
    b.I32(1).I32(0).I32(0).I32(45);                       // visual .. manual seconds
    b.Zeros(48 + 576 + 576);
    b.I32(12).I32(1).I32(70).I32(1).I32(80);  // record block
    b.Zeros(1848 + 84);
    for (int i = 1; i <= 5; ++i) b.I32(i);
  }
  OldTail(b);
  ASSERT_EQ(b.size(), 95200u);
  WriteFile(config::kLegacyDVROptionFile, b.str());

  ISetting* s = ISetting::Instance();
  EXPECT_STREQ(s->GetDIPServer(), "dip.example");
  EXPECT_EQ(s->GetDIPPort(), 99);
  EXPECT_EQ(s->IsEnableDynamicIP(), 1);
  EXPECT_STREQ(s->GetCameraName(15), "Cam1200 15");
  EXPECT_EQ(s->IsEventRecoding(15), 1);
  EXPECT_EQ(s->GetManualEventLength(15), 45);
  EXPECT_EQ(s->GetCaptureFrameRate(15), 12);
  EXPECT_EQ(s->GetCompressor(15), 1);
  EXPECT_EQ(s->GetJPEGQuality(15), 80);
  EXPECT_EQ(s->GetImageFilterValue(15, 4), 5);
  EXPECT_EQ(s->GetImageFilterValue(15, 5), kDSFilterOff);
  EXPECT_EQ(s->GetImageFilterValue(15, 6), kDSFilterOff);
  auto def = DefaultOption();
  EXPECT_EQ(s->IsPreRecoding(15), def->dsDVROption.dsCamera[15].bPreRecoding);
  EXPECT_EQ(s->GetPreRecodingInterval(15), def->dsDVROption.dsCamera[15].nPreRecodingSec);
  EXPECT_FALSE(FileExists(OptionFile().c_str()));
}

TEST_F(LegacyTest, UnversionedFileBeginsWithTheSiteName) {
  Bytes b;
  OldGeneral(b, "Oldest");
  for (int n = 0; n < 16; ++n) WholeCamera(b, n);
  OldTail(b);
  ASSERT_EQ(b.size(), 94664u);
  WriteFile(config::kLegacyDVROptionFile, b.str());
  ISetting* s = ISetting::Instance();
  EXPECT_EQ(s->MigrationResult().files[0].layout, config::LegacyLayout::kUnversioned);
  EXPECT_STREQ(s->GetSiteName(), "Oldest");
  EXPECT_STREQ(s->GetCameraName(2), "Old cam 2");
  tagDSDVROPTION rec;
  s->LoadDVROption(rec);
  EXPECT_EQ(rec.nVersion, 1500);
}

TEST_F(LegacyTest, RecordFilesMigrateAfterTheDocumentAndAreDeleted) {
  Bytes audio;
  audio.I32(1500).I32(3).I32(4).I32(1).Text("Line In", 260).Zeros(13072 - 16 - 260);
  WriteFile("AudioOption.zmi", audio.str());
  Bytes talk;
  talk.I32(7).Text("Talk mic", 260).Text("Talk spk", 260).I32(5000).I32(6000).I32(1).Zeros(32 * 264);
  WriteFile("TALKOption.zmi", talk.str());
  Bytes pref;
  pref.I32(1).I32(1).I32(0).I32(1).I32(0).I32(7).Zeros(1244 - 24);
  WriteFile("PlayerOption.zmi", pref.str());
  Bytes player;
  player.I32(3).Text("Speakers", 260).I32(1234).Zeros(16 * 264);
  WriteFile("PlayAudioOption.zmi", player.str());

  ISetting* s = ISetting::Instance();
  tagDSAUDIOEXPRESS a;
  s->LoadAudioExpressOption(a);
  EXPECT_EQ(a.nCurRecordDevice, 3);
  EXPECT_STREQ(a.dsRecordDevice[0].szDeviceName, "Line In");
  tagDSTALKOPTION t;
  s->LoadTalkOption(t);
  EXPECT_STREQ(t.szCurPlayDeviceName, "Talk spk");
  EXPECT_EQ(s->GetPlayOption().nBackupPeriod, 7);
  tagDSPLAYERAUDIO pa;
  s->LoadPlayerAudioOption(pa);
  EXPECT_STREQ(pa.szCurPlayDeviceName, "Speakers");
  for (const char* f : {"AudioOption.zmi", "TALKOption.zmi", "PlayerOption.zmi", "PlayAudioOption.zmi"})
    EXPECT_FALSE(FileExists(Path(f).c_str())) << f;
  auto doc = LoadFresh();
  EXPECT_EQ(doc->dsAudioExpress.nCurRecordDevice, 3);
  EXPECT_STREQ(doc->dsTalkOption.szCurDeviceName, "Talk mic");
  EXPECT_EQ(doc->dsPreference.nBackupPeriod, 7);
}

TEST_F(LegacyTest, HostileFilesLeaveDefaultsAndStay) {
  Bytes shortFile;
  shortFile.I32(1500).Text("Short", 32);
  WriteFile(config::kLegacyDVROptionFile, shortFile.str());
  Bytes badAudio;
  badAudio.I32(1499).Zeros(13068);
  WriteFile("AudioOption.zmi", badAudio.str());
  WriteFile("TALKOption.zmi", std::string(100, 'x'));

  ISetting* s = ISetting::Instance();
  auto def = DefaultOption();
  EXPECT_STREQ(s->GetSiteName(), def->dsDVROption.dsGeneral.szSiteName);
  tagDSAUDIOEXPRESS a;
  s->LoadAudioExpressOption(a);
  EXPECT_EQ(a.nCurRecordDevice, def->dsAudioExpress.nCurRecordDevice);
  const auto& files = s->MigrationResult().files;
  EXPECT_EQ(files[0].layout, config::LegacyLayout::kRejected);
  EXPECT_FALSE(files[1].accepted);
  EXPECT_NE(files[1].note.find("1499"), std::string::npos);
  EXPECT_TRUE(FileExists(OptionFile().c_str()));
  EXPECT_TRUE(FileExists(Path("AudioOption.zmi").c_str()));
}

TEST(LegacyReader, GarbageOfEveryLengthNeverRunsPastItsBuffer) {
  std::mt19937 rng(7);
  std::vector<unsigned char> data(110000);
  for (auto& c : data) c = static_cast<unsigned char>(rng());
  auto rec = std::make_unique<tagDSDVROPTION>();
  for (size_t size : {size_t{0}, size_t{3}, size_t{4}, size_t{94663}, size_t{94664}, size_t{108847}, data.size()}) {
    std::memset(rec.get(), 0, sizeof *rec);
    const auto layout = config::ReadLegacyDVROption(data.data(), size, *rec);
    if (size < 94664) {
      EXPECT_EQ(layout, config::LegacyLayout::kRejected) << size;
    } else {
      EXPECT_EQ(layout, config::LegacyLayout::kUnversioned) << size;
      EXPECT_LT(std::strlen(rec->dsGeneral.szSiteName), 32u);
      EXPECT_LT(std::strlen(rec->dsCamera[15].dsAction.szAlarm), 32u);
    }
  }
  // A right version word with too few bytes is rejected too.
  data[0] = 0x4C;  // 1100
  data[1] = 0x04;
  data[2] = data[3] = 0;
  EXPECT_EQ(config::ReadLegacyDVROption(data.data(), 94667, *rec), config::LegacyLayout::kRejected);
  EXPECT_EQ(config::ReadLegacyDVROption(data.data(), 94668, *rec), config::LegacyLayout::k1100);
}

}  // namespace
}  // namespace dravix::test
