// Times and camera numbers on the command line: only the documented forms
// and the ranges the recorder's values hold; arithmetic that would leave
// them is refused instead of wrapping.
#include "tests/support/run_program.h"
#include "tests/support/test_home.h"

#include <gtest/gtest.h>

namespace dravix::test {
namespace {

struct Case {
  std::vector<std::string> args;
  int status;
  const char* out;  // a part of standard output when the command succeeds
};

TEST(TimeArgs, OnlyValidTimesAndResultsInRange) {
  const Case cases[] = {
      {{"time", "zm", "20080315120010000"}, 0, "2008-03-15 12:00:10.000"},
      {{"time", "zm", "20080315120010"}, 2, nullptr},  // a ZM time without its milliseconds
      {{"time", "zm", "0"}, 2, nullptr},
      {{"time", "zm", "2008-03-15T12:00:10.500"}, 0, "20080315120010000"},
      {{"time", "zm", "2008-03-15 12:00:10.5"}, 2, nullptr},  // milliseconds have three digits
      {{"time", "zm", " 2008-03-15 12:00:10"}, 2, nullptr},
      {{"time", "zm", "2008-02-30 12:00:00"}, 2, nullptr},
      {{"time", "add", "9999-12-31 23:59:58", "1"}, 0, "9999-12-31 23:59:59"},
      {{"time", "add", "9999-12-31 23:59:59", "100"}, 2, nullptr},  // would wrap to 1899
      {{"time", "add", "1601-01-01 00:00:00", "-1"}, 2, nullptr},
      {{"time", "diff", "2008-03-15 12:00:00", "2008-03-15 13:00:00"}, 0, "3600"},
      {{"time", "diff", "1601-01-01 00:00:00", "9999-12-31 00:00:00"}, 2, nullptr},  // beyond 32 bits
  };
  for (const Case& c : cases) {
    const ProgramResult r = RunDravix(c.args);
    const std::string what = c.args[1] + " '" + c.args[2] + "'";
    EXPECT_EQ(r.status, c.status) << what << "\n" << r.out << r.err;
    if (c.out != nullptr) {
      EXPECT_NE(r.out.find(c.out), std::string::npos) << what << "\n" << r.out;
    }
    if (c.status != 0) {
      EXPECT_EQ(r.err.rfind("dravix: ", 0), 0u) << what << "\n" << r.err;
    }
  }
}

class CameraArgs : public TestHome {};

TEST_F(CameraArgs, CamerasAreZeroToFifteen) {
  for (const char* camera : {"-1", "16"}) {
    EXPECT_EQ(RunDravix({"schedule", "show", camera, "--home", home()}).status, 2) << camera;
    EXPECT_EQ(RunDravix({"schedule", "post", camera, "--home", home()}).status, 2) << camera;
  }
  const ProgramResult one = RunDravix({"schedule", "show", "15", "--home", home()});
  EXPECT_EQ(one.status, 0) << one.err;
  EXPECT_NE(one.out.find("Camera 15"), std::string::npos) << one.out;
}

}  // namespace
}  // namespace dravix::test
