#include "dravix/base/zfile.h"
#include "tests/support/test_home.h"

#include <cstdlib>

namespace {

TEST(ModulePath, DefaultIsTheExecutablesFolderNotTheLibrarys) {
  SetModulePath(nullptr);
  unsetenv("DRAVIX_HOME");
  const std::string folder = GetModulePath();
  ASSERT_FALSE(folder.empty());
  EXPECT_EQ(folder.back(), '/');
  // The test binary lives in <build>/tests; the library is linked in, so
  // the folder must be the binary's.
  char exe[4096];
  const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  ASSERT_GT(n, 0);
  EXPECT_EQ(std::string(exe, static_cast<size_t>(n)).rfind(folder, 0), 0u);
}

TEST(ModulePath, EnvironmentThenExplicitSettingWinAndKeepTheSeparator) {
  SetModulePath(nullptr);
  setenv("DRAVIX_HOME", "/srv/rec", 1);
  EXPECT_EQ(GetModulePath(), "/srv/rec/");
  SetModulePath("/opt/live/");
  EXPECT_EQ(GetModulePath(), "/opt/live/");
  SetModulePath("/opt/player");
  EXPECT_EQ(GetModulePath(), "/opt/player/");
  SetModulePath("");
  EXPECT_EQ(GetModulePath(), "/srv/rec/");
  unsetenv("DRAVIX_HOME");
}

}  // namespace
