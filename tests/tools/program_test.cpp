// The program's exit-status convention, which every tools test relies on.
#include "tests/support/run_program.h"

#include <gtest/gtest.h>

namespace dravix::test {
namespace {

TEST(Program, ExitStatusSaysSuccessFailureOrUsage) {
  EXPECT_EQ(RunDravix({"time", "days", "2008", "2"}).status, 0);
  const ProgramResult usage = RunDravix({"no-such-command"});
  EXPECT_EQ(usage.status, 2) << usage.err;
  EXPECT_FALSE(usage.err.empty());
  EXPECT_EQ(usage.err.rfind("dravix: ", 0), 0u) << usage.err;
  const ProgramResult failure = RunDravix({"probe", "/nonexistent/cam01.dat"});
  EXPECT_EQ(failure.status, 1) << failure.err;

  const ProgramResult version = RunDravix({"--version"});
  EXPECT_EQ(version.status, 0) << version.err;
  EXPECT_EQ(version.out.rfind("dravix " DRAVIX_VERSION "\n", 0), 0u) << version.out;
  EXPECT_NE(version.out.find("libavcodec "), std::string::npos) << version.out;
}

}  // namespace
}  // namespace dravix::test
