#include "dravix/config/optionkeys.h"
#include "dravix/config/optiontext.h"
#include "tests/config/option_fixture.h"

#include <map>

namespace dravix::test {
namespace {

using config::SetKeyResult;

TEST(OptionText, LongTextIsCutToBoundMinusOneAndTerminated) {
  char f[8];
  std::memset(f, 'x', sizeof f);
  config::CopyOptionText(f, "abcdefghij");
  EXPECT_EQ(std::string(f, 8), std::string("abcdefg\0", 8));
  config::CopyOptionText(f, "");
  EXPECT_EQ(f[0], '\0');
  char unterminated[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(config::OptionText(unterminated), "abcd");
}

class OptionKeysTest : public OptionHome {};

TEST_F(OptionKeysTest, PathsAreUniqueAndSettingByPathChecksTheValue) {
  auto o = DefaultOption();
  std::map<std::string, std::string> values;
  for (const auto& k : config::ListOptionKeys(*o)) EXPECT_TRUE(values.emplace(k.path, k.value).second) << k.path;
  EXPECT_EQ(values["Camera/Camera0/DsAction/DsPagerComPort"], "Com 1");
  EXPECT_EQ(values["General/Recycle/AutoUpdateRecycleDay"], "0.000000");

  std::string err;
  EXPECT_EQ(config::SetOptionKey(*o, "ZeploXML\\Camera\\Camera3\\DsRecord\\FrameRate", "12", &err), SetKeyResult::kSet);
  EXPECT_EQ(o->dsDVROption.dsCamera[3].dsRecord.nFrameRate, 12);
  EXPECT_EQ(config::SetOptionKey(*o, "\\zeploxml/camera/camera3/name\\", "yard", &err), SetKeyResult::kSet);
  EXPECT_STREQ(o->dsDVROption.dsCamera[3].szName, "yard");
  EXPECT_EQ(config::SetOptionKey(*o, "Camera/Camera3/DsCaption/CaptionFont/Italic", "1", &err), SetKeyResult::kSet);
  EXPECT_EQ(o->dsDVROption.dsCamera[3].dsCaption.lfCaptionFont.lfItalic, 1);
  EXPECT_EQ(config::SetOptionKey(*o, "General/Recycle/AutoUpdateRecycleDay", "0.5", &err), SetKeyResult::kSet);
  EXPECT_FLOAT_EQ(o->dsDVROption.dsGeneral.dsRecycle.fKeepRatio, 0.5f);

  EXPECT_EQ(config::SetOptionKey(*o, "Camera/Camera16/Name", "x", &err), SetKeyResult::kUnknownPath);
  EXPECT_NE(err.find("Camera/Camera16/Name"), std::string::npos);
  EXPECT_EQ(config::SetOptionKey(*o, "Camera/Camera3", "x", &err), SetKeyResult::kUnknownPath);
  const struct {
    const char* path;
    const char* value;
  } bad[] = {
      {"Camera/Camera3/RecordSecond", "12s"},
      {"Camera/Camera3/RecordSecond", "4294967296"},
      {"Camera/Camera3/RecordSecond", ""},
      {"Camera/Camera3/Record", "2"},
      {"General/Recycle/AutoUpdateRecycleDay", "half"},
      {"Camera/Camera3/Name", "a name of thirty-two characters!"},
  };
  for (const auto& b : bad) {
    EXPECT_EQ(config::SetOptionKey(*o, b.path, b.value, &err), SetKeyResult::kBadValue) << b.path << " " << b.value;
  }
  EXPECT_EQ(o->dsDVROption.dsCamera[3].nRecordSecond, 50);
  EXPECT_STREQ(o->dsDVROption.dsCamera[3].szName, "yard");
}

}  // namespace
}  // namespace dravix::test
