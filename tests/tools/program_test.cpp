// The program's exit-status convention, which every tools test relies on.
#include "tests/support/run_program.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

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

// `files has` is a predicate: its exit status answers as well as its text.
TEST(Program, FilesHasAnswersWithItsExitStatus) {
  ProgramOptions o;
  o.env = {{"DRAVIX_IPC_NAMESPACE", "has" + std::to_string(::getpid())}};
  const std::string path = "/rec/CAM07-20080315-120000.zmf";
  ProgramResult none = RunDravix({"files", "has", path}, o);
  EXPECT_EQ(none.status, 1) << none.err;
  EXPECT_EQ(none.out, "0\n");
  const pid_t holder = StartDravix({"files", "add", path, "--hold", "2"}, o);
  ProgramResult held;
  for (int i = 0; i < 100 && held.status != 0; ++i) {
    held = RunDravix({"files", "has", path}, o);
    if (held.status != 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(held.status, 0) << held.err;
  EXPECT_EQ(held.out, "1\n");
  EXPECT_EQ(WaitProgram(holder), 0);
  EXPECT_EQ(RunDravix({"files", "has", path}, o).status, 1);
}

}  // namespace
}  // namespace dravix::test
