// `dravix timeline` on a folder the recorder could have written: the gaps
// where files are missing, a torn file reported damaged and left as it was,
// a file another process holds reported as being written.
#include "tests/support/run_program.h"
#include "tests/support/test_home.h"
#include "tests/tools/media_tool_util.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>

namespace dravix::test {
namespace {

class Timeline : public TestHome {
 protected:
  void Record(const std::string& name, const std::string& start) {
    std::filesystem::create_directories(Path("rec/2008-03-15/cam01"));
    const ProgramResult r = RunDravix({"write-test-recording", "--noise", Path("rec/2008-03-15/cam01/" + name),
                                       "--seconds", "20", "--start", start, "--home", home()});
    ASSERT_EQ(r.status, 0) << r.err;
  }
};

TEST_F(Timeline, GapsDamageAndOpenFilesOfARecordFolder) {
  Record("120000000-01.dat", "2008-03-15 12:00:00");
  // 12:01 is missing.
  Record("120200000-01.dat", "2008-03-15 12:02:00");
  Record("120300000-01.dat", "2008-03-15 12:03:00");
  const std::string torn = Path("rec/2008-03-15/cam01/120200000-01.dat");
  std::filesystem::resize_file(torn, std::filesystem::file_size(torn) - 5000);
  const FolderBytes before = Snapshot(Path("rec"));

  ProgramOptions o;
  o.env = {{"DRAVIX_IPC_NAMESPACE", "timeline" + std::to_string(::getpid())}};
  const std::string open = Path("rec/2008-03-15/cam01/120300000-01.dat");
  const pid_t holder = StartDravix({"files", "add", open, "--hold", "30"}, o);
  for (int i = 0; i < 200 && RunDravix({"files", "has", open}, o).status != 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  const ProgramResult r = RunDravix({"timeline", Path("rec"), "--json", "--home", home()}, o);
  ::kill(holder, SIGTERM);
  WaitProgram(holder);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Describe(before, Snapshot(Path("rec"))), "same");

  const nlohmann::json j = nlohmann::json::parse(r.out);
  ASSERT_EQ(j["files"].size(), 3u) << r.out;
  EXPECT_EQ(j["files"][0]["state"], "intact");
  EXPECT_EQ(j["files"][0]["end"], "2008-03-15 12:00:19.960");
  EXPECT_EQ(j["files"][1]["state"], "damaged");
  EXPECT_NE(j["files"][1]["why"].get<std::string>().find("torn"), std::string::npos) << j["files"][1];
  EXPECT_EQ(j["files"][2]["state"], "being written");
  for (const auto& f : j["files"]) EXPECT_EQ(f["camera"], "cam01");

  ASSERT_EQ(j["gaps"].size(), 2u) << r.out;
  EXPECT_EQ(j["gaps"][0]["start"], "2008-03-15 12:00:19.960");
  EXPECT_EQ(j["gaps"][0]["end"], "2008-03-15 12:02:00.000");
  EXPECT_EQ(j["gaps"][0]["cause"], "unknown");
  // The torn file's last whole record ends the covered time; the gap after
  // it is the damage's.
  EXPECT_EQ(j["gaps"][1]["start"], j["files"][1]["end"]);
  EXPECT_LT(j["files"][1]["end"].get<std::string>(), "2008-03-15 12:02:19.960");
  EXPECT_EQ(j["gaps"][1]["cause"], "damaged");

  ASSERT_EQ(j["days"].size(), 1u);
  EXPECT_EQ(j["days"][0]["files"], 3);
  EXPECT_EQ(j["days"][0]["gaps"], 2);
  EXPECT_EQ(j["days"][0]["damaged"], 1);
  EXPECT_EQ(j["days"][0]["being_written"], 1);

  // The day filter, and a missing folder.
  const ProgramResult later = RunDravix({"timeline", Path("rec"), "--from", "2008-03-16", "--json", "--home", home()});
  EXPECT_EQ(nlohmann::json::parse(later.out)["files"].size(), 0u) << later.out;
  EXPECT_EQ(RunDravix({"timeline", Path("nowhere"), "--home", home()}).status, 1);
  EXPECT_EQ(RunDravix({"timeline", Path("rec"), "--from", "2008-13-01", "--home", home()}).status, 2);
}

}  // namespace
}  // namespace dravix::test
