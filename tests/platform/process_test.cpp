#include "dravix/platform/process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

namespace {

TEST(Processes, ListIncludesThisProcessAndInitWithNames) {
  const auto list = dravix::platform::ListProcesses();
  ASSERT_FALSE(list.empty());
  const auto self = std::find_if(list.begin(), list.end(), [](const auto& p) { return p.pid == getpid(); });
  ASSERT_NE(self, list.end());
  EXPECT_EQ(self->name, "tests_platform");
  for (const auto& p : list) {
    EXPECT_GT(p.pid, 0);
    EXPECT_FALSE(p.name.empty());
    EXPECT_EQ(p.name.find('/'), std::string::npos) << p.name;
  }
}

}  // namespace
