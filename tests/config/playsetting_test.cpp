#include "dravix/config/playsetting.h"
#include "dravix/settings/setting.h"
#include "tests/config/option_fixture.h"

#include <functional>
#include <memory>
#include <string>

namespace dravix::test {
namespace {

class PlaySettingTest : public OptionHome {};

TEST_F(PlaySettingTest, DocumentWithoutPlayerGivesThePlayerDefaults) {
  WriteFile(config::kOptionFileName,
            "<?xml version='1.0'?><f:ZeploXML xmlns:f='urn:x'><General><SiteName>depot</SiteName></General>"
            "<Camera><Camera2><Name>gate</Name><Privilege>1</Privilege></Camera2></Camera>"
            "<User><DirectAccess>0</DirectAccess></User></f:ZeploXML>");
  IPlaySetting* s = IPlaySetting::Instance();
  tagDSPREFERENCE p{};
  s->LoadPlayerOption(p);
  EXPECT_STREQ(p.szBackupPath, "30");
  EXPECT_EQ(p.bQuickDisplay, 1);
  const tagDSPLAYCAPTION c = s->GetPlayOption();
  EXPECT_EQ(c.dsCaption.bNumber + c.dsCaption.bName + c.dsCaption.bDate + c.dsCaption.bTime, 4);
  tagDSPLAYERAUDIO a{};
  s->LoadPlayerAudioOption(a);
  EXPECT_EQ(a.dsPlayDevice[15].nVolume, 65535);

  // The recorder's options, as the player sees them.
  EXPECT_STREQ(s->GetSiteName(), "depot");
  EXPECT_STREQ(s->GetCameraName(2), "gate");
  EXPECT_STREQ(s->GetCameraName(3), "S4506");
  EXPECT_EQ(s->GetCameraPrivilege(2), 1);
  EXPECT_EQ(s->GetCameraPrivilege(3), 3);
  EXPECT_STREQ(s->GetCameraName(16), "");
  EXPECT_EQ(s->IsDirectAccess(), 0);
  EXPECT_EQ(IBackupSetting::Instance()->IsDirectAccess(), 0);
}

TEST_F(PlaySettingTest, SavesReachTheDocumentAndKeepTheRecordersSections) {
  IPlaySetting* s = IPlaySetting::Instance();
  tagDSPREFERENCE p{};
  s->LoadPlayerOption(p);
  auto rec = LoadFresh();  // the recorder saves its part after the player loaded
  config::CopyOptionText(rec->dsDVROption.dsGeneral.szSiteName, "changed by the recorder");
  ZXMLMGR().SaveOption(*rec, 0);
  p.bLoopPlay = 1;
  p.bCaption = 1;
  p.bCameraSwitch[3][15] = 1;
  p.dsPlayCaption.byReserved[0] = 7;  // not part of the layout: saved as zero
  config::CopyOptionText(p.szBackupPath, "/srv/backup");
  ASSERT_EQ(s->SavePlayerOption(p), 1);
  tagDSPLAYERAUDIO a{};
  s->LoadPlayerAudioOption(a);
  config::CopyOptionText(a.szCurPlayDeviceName, "USB speaker");
  ASSERT_EQ(s->SavePlayerAudioOption(a), 1);
  EXPECT_EQ(s->IsPlaybackLoop(), 1);
  EXPECT_EQ(s->IsPlayCaption(), 1);
  EXPECT_EQ(s->GetPlayOption().byReserved[0], 0);

  auto back = LoadFresh();
  EXPECT_EQ(back->dsPreference.bLoopPlay, 1);
  EXPECT_STREQ(back->dsDVROption.dsGeneral.szSiteName, "changed by the recorder");
  EXPECT_EQ(XPath(DocPath(), "string(/*/Player/M4-15)"), "1");
  EXPECT_EQ(XPath(DocPath(), "string(/*/Player/DsPlayerAudio/CurPlayDeviceName)"), "USB speaker");

  tagDSPREFERENCE b{};
  IBackupSetting::Instance()->GetPreference(b);
  EXPECT_STREQ(b.szBackupPath, "/srv/backup");
  EXPECT_EQ(IBackupSetting::Instance()->IsDirectAccess(), 1);
}

// Both readers take a raw main record of any length: a short file fills
// only what it holds.
TEST_F(PlaySettingTest, RawMainRecordReaders) {
  auto raw = std::make_unique<tagDSDVROPTION>();
  raw->nVersion = 1500;
  config::CopyOptionText(raw->dsGeneral.szSiteName, "from file");
  config::CopyOptionText(raw->dsCamera[9].szName, "yard");
  raw->dsCamera[9].nPrivilege = 2;
  WriteFile("whole.zmi", std::string(reinterpret_cast<const char*>(raw.get()), sizeof *raw));
  WriteFile("short.zmi", std::string("\xdc\x05\0\0short", 9));
  struct Reader {
    const char* name;
    std::function<int(const char*)> read;
    std::function<std::string()> site;
  };
  ISetting* s = ISetting::Instance();
  IPlaySetting* p = IPlaySetting::Instance();
  const Reader readers[] = {
      {"settings", [s](const char* f) { return s->ReadDVROptionFromFile(f); },
       [s] { return std::string(s->GetSiteName()); }},
      {"player", [p](const char* f) { return p->ReadDVROptionFromFile(f); },
       [p] { return std::string(p->GetSiteName()); }},
  };
  for (const Reader& r : readers) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(r.read(Path("absent.zmi").c_str()), 0);
    EXPECT_NE(r.site(), "from file");
    EXPECT_EQ(r.read(Path("whole.zmi").c_str()), 1);
    EXPECT_EQ(r.site(), "from file");
    EXPECT_EQ(r.read(Path("short.zmi").c_str()), 1);
    EXPECT_EQ(r.site(), "shortfile");  // no terminator in the file
  }
  EXPECT_STREQ(p->GetCameraName(9), "yard");
  EXPECT_EQ(p->GetCameraPrivilege(9), 2);
}

}  // namespace
}  // namespace dravix::test
