#include "dravix/config/xmldoc.h"
#include "dravix/config/optionkeys.h"
#include "tests/config/option_fixture.h"

#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace dravix::test {
namespace {

// Replaces, in the file, the text from the first `from` after `anchor` up
// to and including the next `to` by `with`.
void EditFile(const std::string& path, const std::string& anchor, const std::string& from, const std::string& to,
              const std::string& with) {
  std::string text = TestHome::ReadFile(path);
  const size_t a = text.find(anchor);
  ASSERT_NE(a, std::string::npos) << anchor;
  const size_t f = text.find(from, a);
  ASSERT_NE(f, std::string::npos) << from;
  const size_t t = text.find(to, f + from.size());
  ASSERT_NE(t, std::string::npos) << to;
  text.replace(f, t + to.size() - f, with);
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// Sets the text of the first element `tag` after `anchor`.
void SetElement(const std::string& path, const std::string& anchor, const std::string& tag, const std::string& text) {
  EditFile(path, anchor, "<" + tag + ">", "</" + tag + ">", "<" + tag + ">" + text + "</" + tag + ">");
}

class XmlDocTest : public OptionHome {};

TEST_F(XmlDocTest, MissingFileIsRecreatedWithEveryDefault) {
  int parsed = -1;
  auto loaded = LoadFresh(&parsed);
  EXPECT_EQ(parsed, 0);
  auto defaults = DefaultOption();
  EXPECT_TRUE(SameRecord(*loaded, *defaults));

  // The file as another parser sees it.
  const std::string f = DocPath();
  EXPECT_EQ(XPath(f, "name(/*)"), "f:ZeploXML");
  EXPECT_EQ(XPath(f, "namespace-uri(/*)"), config::kOptionNamespaceUri);
  const struct {
    const char* expr;
    std::string want;
  } cases[] = {
      {"count(/*/Camera/*)", "16"},
      {"count(/*/Camera/*/RecordSecond[.='50'])", "16"},
      {"count(/*/Camera/*/DsAction/DsPager/ComPort[.='Com 1'])", "16"},
      {"count(/*/Camera/*/DsAction/DsFax/ComPort[.='Com 1'])", "16"},
      {"count(/*/Camera/*/DsAction/DsFax/SelNur[.=''])", "16"},
      {"count(/*/Camera/*/ImageFilterValue6[.='-10000'])", "16"},
      {"string(/*/Camera/Camera7/Name)", "S4510"},
      {"string(/*/Camera/Camera0/DsAction/DsPhone/DefVoicename)", home() + "prefix.wav"},
      {"string(/*/Camera/Camera0/DsCaption/CaptionFont/FaceName)", "Tahoma"},
      {"string(/*/General/dsDynamicIP/Port)", "18080"},
      {"string(/*/General/Recycle/AutoUpdateRecycleDay)", "0.000000"},
      {"string(/*/General/SiteName)", "S4501"},
      {"string(/*/Map/MapFile)", "pic\\photo.bmp"},
      {"count(/*/POS/*/szPort[.='COM1'])", "16"},
      {"count(/*/POS/*/nClearupDealy)", "16"},
      {"count(/*/Audio/*/Volume[.='65535'])", "48"},
      {"string(/*/Player/BackupPath)", "30"},
      {"string(/*/Player/DsCaption/lfCaptionFont/PitchAndFamily)", "34"},
      {"count(/*/Player/dsTalk/dsPlayDevice/*)", "32"},
      {"string(/*/SystemTime/Year)", "1990"},
  };
  for (const auto& c : cases) EXPECT_EQ(XPath(f, c.expr), c.want) << c.expr;
  // Every setting the loader knows is an element (the pager settings in
  // their nested form, the six SystemTime elements beside the sections).
  EXPECT_EQ(XPath(f, "count(//*[not(*)])"), std::to_string(config::ListOptionKeys(*defaults).size() + 6));
}

TEST_F(XmlDocTest, WholeRecordSurvivesSaveAndLoad) {
  auto saved = VariedOption(20240601);
  saved->dsAudioExpress.nVersion = kDSOptionVersion;  // not carried: the loader keeps its own
  ASSERT_EQ(ZXMLMGR().SaveOption(*saved, 0), 1);
  int parsed = 0;
  auto loaded = LoadFresh(&parsed);
  EXPECT_EQ(parsed, 1);
  const auto a = config::ListOptionKeys(*saved);
  const auto b = config::ListOptionKeys(*loaded);
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) EXPECT_EQ(a[i].value, b[i].value) << a[i].path;
  EXPECT_TRUE(SameRecord(*saved, *loaded));
  // A second save of what was loaded gives the same bytes.
  const std::string first = ReadFile(DocPath());
  ZXMLMGR().SaveOption(*loaded, 0);
  EXPECT_TRUE(ReadFile(DocPath()) == first);
}

TEST_F(XmlDocTest, SaveWithFlagOneWritesWhatTheSectionsHold) {
  ZXMLMGR mgr;
  auto o = NewOption();
  mgr.LoadOption(*o);
  auto other = VariedOption(7);
  ASSERT_EQ(mgr.SaveOption(*other, 1), 1);  // the record is not handed over
  EXPECT_TRUE(SameRecord(*LoadFresh(), *o));
}

TEST_F(XmlDocTest, MalformedFilesAreKeptAsideAndReplacedByTheDefaultDocument) {
  const std::string inputs[] = {
      "",
      "<?xml version='1.0'?>",
      "<f:ZeploXML xmlns:f='u'><General><SiteName>x</SiteName></General>",
      "<a><b></a></b>",
      std::string("\x00\x01\x02garbage", 10),
      "<f:ZeploXML xmlns:f='u'/><second/>",
  };
  auto defaults = DefaultOption();
  for (const std::string& in : inputs) {
    WriteFile(config::kOptionFileName, in);
    int parsed = -1;
    auto o = LoadFresh(&parsed);
    EXPECT_EQ(parsed, 0) << in;
    EXPECT_TRUE(SameRecord(*o, *defaults)) << in;
    EXPECT_EQ(XPath(DocPath(), "string(/*/Camera/Camera3/RecordSecond)"), "50") << in;
    EXPECT_EQ(ReadFile(DocPath() + ".bad"), in);
  }
  // The last three unreadable documents are kept, newest first.
  EXPECT_EQ(ReadFile(DocPath() + ".bad.1"), inputs[4]);
  EXPECT_EQ(ReadFile(DocPath() + ".bad.2"), inputs[3]);
  EXPECT_FALSE(std::filesystem::exists(DocPath() + ".bad.3"));
}

// The reading rules, each on one element of camera 0 in an otherwise
// default document.
TEST_F(XmlDocTest, NumbersAndSwitchesAreReadAsTheDocumentDefines) {
  const std::string zeros1022(1022, '0'), zeros1023(1023, '0');
  const struct {
    const char* element;
    std::string text;
    LONG expected;
  } cases[] = {
      {"Record", "2", 0},  // only 1 is on
      {"Record", "1", 1},
      {"Record", "0", 0},
      {"Connection", "yes", 0},  // not a number
      {"RecordSecond", "12abc", 12},
      {"RecordSecond", " -7", -7},
      {"RecordSecond", "", 0},  // present but empty is 0, not the default
      {"RecordSecond", "99999999999", 2147483647},
      {"RecordSecond", zeros1022 + "7", 7},
      {"RecordSecond", zeros1023 + "7", 0},  // the 1024-byte buffer cuts the 7
      {"Privilege", "<![CDATA[2]]>", 2},
  };
  for (const auto& c : cases) {
    LoadFresh();  // default document
    const std::string tag = c.element;
    SetElement(DocPath(), "<Camera0>", tag, c.text);
    auto o = LoadFresh();
    const tagDSCAMERAOPTION& cam = o->dsDVROption.dsCamera[0];
    const LONG got = tag == "Record"       ? cam.bRecord
                     : tag == "Connection" ? cam.bConnection
                     : tag == "Privilege"  ? cam.nPrivilege
                                           : cam.nRecordSecond;
    EXPECT_EQ(got, c.expected) << tag << " = " << c.text.substr(0, 20);
    std::remove(DocPath().c_str());
  }
}

TEST_F(XmlDocTest, MissingElementsGiveTheLoaderDefaults) {
  LoadFresh();
  // Drop camera 2's record length, its fax port and selected number, and
  // the whole Player section.
  EditFile(DocPath(), "<Camera2>", "<RecordSecond>", "</RecordSecond>", "");
  EditFile(DocPath(), "<Camera2>", "<ComPort>Com 1", "</ComPort>", "");
  EditFile(DocPath(), "<Camera2>", "<SelNur", "/>", "");
  EditFile(DocPath(), "</Audio>", "<Player>", "</Player>", "");
  auto o = LoadFresh();
  const tagDSACTIONOPTION& a = o->dsDVROption.dsCamera[2].dsAction;
  EXPECT_EQ(o->dsDVROption.dsCamera[2].nRecordSecond, 50);
  // QUIRK(crossed-fax-defaults): the fax fallbacks cross over against the default document.
  EXPECT_STREQ(a.szFaxComPort, "");
  EXPECT_STREQ(a.szSelNur, "Com 1");
  EXPECT_STREQ(o->dsDVROption.dsCamera[1].dsAction.szFaxComPort, "Com 1");
  EXPECT_STREQ(o->dsDVROption.dsCamera[1].dsAction.szSelNur, "");
  EXPECT_EQ(o->dsPreference.nTimelineInterval, 3600);
}

TEST_F(XmlDocTest, PagerSettingsLiveBesideTheDefaultPagerElement) {
  auto o = LoadFresh();
  EXPECT_STREQ(o->dsDVROption.dsCamera[4].dsAction.szPagerComPort, "Com 1");
  tagDSACTIONOPTION& a = o->dsDVROption.dsCamera[4].dsAction;
  config::CopyOptionText(a.szPagerComPort, "Com 3");
  config::CopyOptionText(a.szPagerNumber[2], "0912345678");
  config::CopyOptionText(a.szContext, "door open");
  ZXMLMGR().SaveOption(*o, 0);

  const std::string act = std::string("/*/Camera/Camera4/DsAction/");
  EXPECT_EQ(XPath(DocPath(), "string(" + act + "DsPagerComPort)"), "Com 3");
  EXPECT_EQ(XPath(DocPath(), "string(" + act + "DsPagerPagerNumber2)"), "0912345678");
  EXPECT_EQ(XPath(DocPath(), "string(" + act + "DsPagerContext)"), "door open");
  EXPECT_EQ(XPath(DocPath(), "string(" + act + "DsPager/ComPort)"), "Com 1");

  // The nested element is not what the loader reads.
  EditFile(DocPath(), "<Camera4>", "<DsPager>", "</ComPort>", "<DsPager><ComPort>Com 9</ComPort>");
  EXPECT_EQ(XPath(DocPath(), "string(" + act + "DsPager/ComPort)"), "Com 9");
  EXPECT_STREQ(LoadFresh()->dsDVROption.dsCamera[4].dsAction.szPagerComPort, "Com 3");
}

// QUIRK(alarm-switch-and-text)
TEST_F(XmlDocTest, AlarmKeepsTheSwitchAndReadsItBackAsText) {
  auto o = LoadFresh();
  tagDSACTIONOPTION& a = o->dsDVROption.dsCamera[5].dsAction;
  a.bAlarm = 1;
  config::CopyOptionText(a.szAlarm, "siren");
  ZXMLMGR().SaveOption(*o, 0);
  EXPECT_EQ(XPath(DocPath(), "string(/*/Camera/Camera5/DsAction/Alarm)"), "1");
  auto back = LoadFresh();
  EXPECT_EQ(back->dsDVROption.dsCamera[5].dsAction.bAlarm, 1);
  EXPECT_STREQ(back->dsDVROption.dsCamera[5].dsAction.szAlarm, "1");
  EXPECT_STREQ(back->dsDVROption.dsCamera[6].dsAction.szAlarm, "0");
}

TEST_F(XmlDocTest, TextsAreCutInsideTheirBoundAndFloatsWrittenWithSixDecimals) {
  auto o = LoadFresh();
  o->dsDVROption.dsGeneral.dsRecycle.fKeepRatio = 0.95f;
  ZXMLMGR().SaveOption(*o, 0);
  EXPECT_EQ(XPath(DocPath(), "string(/*/General/Recycle/AutoUpdateRecycleDay)"), "0.950000");
  const std::string longName(100, 'n');
  SetElement(DocPath(), "<Camera1>", "Name", longName);
  SetElement(DocPath(), "<Map>", "MapFile", std::string(2000, 'm'));
  auto back = LoadFresh();
  EXPECT_EQ(std::string(back->dsDVROption.dsCamera[1].szName), std::string(31, 'n'));
  EXPECT_EQ(std::string(back->dsDVROption.dsMap.szMapFile), std::string(259, 'm'));
  EXPECT_FLOAT_EQ(back->dsDVROption.dsGeneral.dsRecycle.fKeepRatio, 0.95f);
}

// Whatever the record or the document holds, the saved file stays well-formed
// XML 1.0 in UTF-8 (checked by xmllint), and a cut text never ends inside a
// character.
TEST_F(XmlDocTest, SavedDocumentsHoldOnlyCharactersXmlAllows) {
  auto wellFormed = [this] {
    int status = 0;
    RunCommand("xmllint --noout '" + DocPath() + "' 2>&1", &status);
    return status == 0;
  };
  auto o = LoadFresh();
  config::CopyOptionText(o->dsDVROption.dsGeneral.szSiteName, "bell\x07 esc\x1b tab\t end");
  config::CopyOptionText(o->dsDVROption.dsCamera[0].szName, "bad \xff\xc3 bytes");
  ASSERT_EQ(ZXMLMGR().SaveOption(*o, 0), 1);
  EXPECT_TRUE(wellFormed()) << ReadFile(DocPath());
  auto back = LoadFresh();
  EXPECT_STREQ(back->dsDVROption.dsGeneral.szSiteName, "bell esc tab\t end");
  EXPECT_STREQ(back->dsDVROption.dsCamera[0].szName, "bad  bytes");

  // Texts longer than their field (31 bytes for a camera name) from the document.
  SetElement(DocPath(), "<Camera1>", "Name", std::string(30, 'n') + "\xc3\xa9" + "x");
  SetElement(DocPath(), "<Camera2>", "Name", std::string(29, 'n') + "\xe4\xb8\xad" + "x");
  SetElement(DocPath(), "<Camera3>", "Name", std::string(27, 'n') + "\xf0\x9f\x93\xb7");
  SetElement(DocPath(), "<General>", "SiteName", "a&#7;b&#x1B;c");  // parsed, but not XML 1.0
  back = LoadFresh();
  EXPECT_EQ(std::string(back->dsDVROption.dsCamera[1].szName), std::string(30, 'n'));
  EXPECT_EQ(std::string(back->dsDVROption.dsCamera[2].szName), std::string(29, 'n'));
  EXPECT_EQ(std::string(back->dsDVROption.dsCamera[3].szName), std::string(27, 'n') + "\xf0\x9f\x93\xb7");
  ASSERT_EQ(ZXMLMGR().SaveOption(*back, 0), 1);
  EXPECT_TRUE(wellFormed()) << ReadFile(DocPath());
  EXPECT_STREQ(LoadFresh()->dsDVROption.dsGeneral.szSiteName, "abc");

  // The in-memory path saves the same bytes as the file.
  std::string saved;
  ZXMLMGR mem;
  const std::string file = ReadFile(DocPath());
  auto m = NewOption();
  mem.LoadOptionFromBuffer(file.data(), file.size(), *m);
  EXPECT_EQ(mem.LastLoadParsed(), 1);
  ASSERT_EQ(mem.SaveOptionToBuffer(*m, 0, saved), 1);
  EXPECT_EQ(saved, file);

  // What the parser lets through but a save must not repeat: a declaration
  // with other pseudo-attributes, a repeated attribute, a name outside XML.
  WriteFile(config::kOptionFileName,
            "<?xml version=\"1.0\" bogus=\"x\"?><f:ZeploXML xmlns:f=\"u\" a=\"1\" a=\"2\"><General>"
            "<SiteName>kept</SiteName><\xc3\x97\x62\x61\x64>x</\xc3\x97\x62\x61\x64></General></f:ZeploXML>");
  int parsed = 0;
  back = LoadFresh(&parsed);
  EXPECT_EQ(parsed, 1);
  EXPECT_STREQ(back->dsDVROption.dsGeneral.szSiteName, "kept");
  ASSERT_EQ(ZXMLMGR().SaveOption(*back, 0), 1);
  EXPECT_TRUE(wellFormed()) << ReadFile(DocPath()).substr(0, 400);
}

TEST_F(XmlDocTest, PathStepsMatchLocalNamesAndAForeignRootTakesNothing) {
  WriteFile(config::kOptionFileName,
            "<x:ZeploXML xmlns:x='urn:other' xmlns:y='urn:y'><y:General><SiteName>north gate</SiteName>"
            "</y:General><Camera><Camera3><RecordSecond>9</RecordSecond></Camera3></Camera></x:ZeploXML>");
  int parsed = 0;
  auto o = LoadFresh(&parsed);
  EXPECT_EQ(parsed, 1);
  EXPECT_STREQ(o->dsDVROption.dsGeneral.szSiteName, "north gate");
  EXPECT_EQ(o->dsDVROption.dsCamera[3].nRecordSecond, 9);
  EXPECT_EQ(o->dsDVROption.dsCamera[2].nRecordSecond, 50);

  // Missing sections are created on save, under the existing root.
  ZXMLMGR().SaveOption(*o, 0);
  EXPECT_EQ(XPath(DocPath(), "string(/*/Camera/Camera15/DsRecord/FrameRate)"), "30");
  EXPECT_EQ(XPath(DocPath(), "string(/*/*[local-name()='General']/SiteName)"), "north gate");

  WriteFile(config::kOptionFileName, "<Options><General><SiteName>x</SiteName></General></Options>");
  o = LoadFresh(&parsed);
  EXPECT_EQ(parsed, 1);
  EXPECT_STREQ(o->dsDVROption.dsGeneral.szSiteName, "S4501");
}

TEST_F(XmlDocTest, TextsStayTheSameAcrossSavesOfALatin1Document) {
  WriteFile(config::kOptionFileName,
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
            "<f:ZeploXML xmlns:f=\"u\"><General><SiteName>caf\xe9</SiteName></General></f:ZeploXML>");
  auto o = LoadFresh();
  EXPECT_STREQ(o->dsDVROption.dsGeneral.szSiteName, "caf\xc3\xa9");
  ZXMLMGR().SaveOption(*o, 0);
  EXPECT_STREQ(LoadFresh()->dsDVROption.dsGeneral.szSiteName, "caf\xc3\xa9");
  EXPECT_EQ(XPath(DocPath(), "string(/*/General/SiteName)"), "caf\xc3\xa9");
}

TEST_F(XmlDocTest, LoadLeavesVersionAndDeviceTableAlone) {
  auto o = NewOption();
  o->dsDVROption.nVersion = 1200;
  std::memset(o->dsDVROption.dsDeviceExt, 0x5A, sizeof o->dsDVROption.dsDeviceExt);
  ZXMLMGR().LoadOption(*o);
  EXPECT_EQ(o->dsDVROption.nVersion, 1200);
  EXPECT_EQ(o->dsDVROption.dsDeviceExt[15].byData[155], 0x5A);
}

// A saver killed at any moment leaves the old or the new document.
TEST_F(XmlDocTest, KilledSaverLeavesTheOldOrTheNewDocument) {
  auto a = VariedOption(1);
  auto b = VariedOption(2);
  config::CopyOptionText(a->dsDVROption.dsGeneral.szSiteName, "document A");
  config::CopyOptionText(b->dsDVROption.dsGeneral.szSiteName, "document B");
  a->dsAudioExpress.nVersion = b->dsAudioExpress.nVersion = kDSOptionVersion;
  ZXMLMGR().SaveOption(*a, 0);

  std::mt19937 rng(99);
  for (int round = 0; round < 50; ++round) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ZXMLMGR mgr;
      for (unsigned i = 0;; ++i) mgr.SaveOption(i % 2 ? *a : *b, 0);
    }
    usleep(2000 + rng() % 60000);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));

    int parsed = 0;
    auto got = LoadFresh(&parsed);
    ASSERT_EQ(parsed, 1) << "round " << round << ": the file was torn";
    ASSERT_TRUE(SameRecord(*got, *a) || SameRecord(*got, *b))
        << "round " << round << ": site name " << got->dsDVROption.dsGeneral.szSiteName;
  }
}

}  // namespace
}  // namespace dravix::test
