// `dravix timeline` on a folder the recorder could have written: the gaps
// where files are missing, a torn file reported damaged and left as it was,
// a file another process holds reported as being written, and each cause
// of a gap made on purpose and named.
#include "tests/support/run_program.h"
#include "tests/support/test_home.h"
#include "tests/tools/media_tool_util.h"

#include "dravix/log/ilog.h"
#include "dravix/platform/files.h"
#include "dravix/recorder/recycler.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace dravix::test {
namespace {

class Timeline : public TestHome {
 protected:
  void Record(const std::string& name, const std::string& start, const std::string& camera = "cam01") {
    std::filesystem::create_directories(Path("rec/2008-03-15/" + camera));
    const ProgramResult r = RunDravix({"write-test-recording", "--noise", Path("rec/2008-03-15/" + camera + "/" + name),
                                       "--seconds", "20", "--start", start, "--home", home()});
    ASSERT_EQ(r.status, 0) << r.err;
  }
  // The causes of the gaps of `camera` in the timeline's JSON, in order.
  static std::vector<std::string> Causes(const nlohmann::json& j, const std::string& camera) {
    std::vector<std::string> causes;
    for (const auto& g : j["gaps"])
      if (g["camera"] == camera) causes.push_back(g["cause"]);
    return causes;
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
  // A page is never written over a recording given by mistake.
  EXPECT_EQ(RunDravix({"timeline", Path("rec"), "--html", open, "--home", home()}).status, 2);
  EXPECT_EQ(ReadFile(open).substr(0, 4), "ZMFF");
}

}  // namespace
}  // namespace dravix::test

namespace dravix::test {
namespace {

// A schedule window, a stopped source, a recycled file and a torn tail,
// each made on purpose by the part of the system that makes it, and each
// gap named after it.
TEST_F(Timeline, EveryGapIsNamedAfterItsCause) {
  // cam01 records 12:00-12:01 and 12:02-12:04 by its schedule: the gap in
  // between is the schedule's; its 12:02 file is torn by a power cut.
  ASSERT_EQ(RunDravix({"schedule", "add-task", "0", "12:00", "12:01", "--home", home(), "--create"}).status, 0);
  ASSERT_EQ(RunDravix({"schedule", "add-task", "0", "12:02", "12:04", "--home", home()}).status, 0);
  ASSERT_EQ(RunDravix({"schedule", "enable", "0", "--home", home()}).status, 0);
  Record("120000000-01.dat", "2008-03-15 12:00:00");
  Record("120200000-01.dat", "2008-03-15 12:02:00");
  Record("120300000-01.dat", "2008-03-15 12:03:00");
  const std::string torn = Path("rec/2008-03-15/cam01/120200000-01.dat");
  std::filesystem::resize_file(torn, std::filesystem::file_size(torn) - 5000);

  // cam03: the recycler deletes its middle file (every other file held).
  Record("120000000-03.dat", "2008-03-15 12:00:00", "cam03");
  Record("120100000-03.dat", "2008-03-15 12:01:00", "cam03");
  Record("120200000-03.dat", "2008-03-15 12:02:00", "cam03");
  ASSERT_TRUE(IRecycleLog::Instance()->SetFilename("Recycle.log"));
  const std::string recycled = Path("rec/2008-03-15/cam03/120100000-03.dat");
  platform::DiskSpace space{};
  ASSERT_TRUE(platform::QueryDiskSpace(home(), &space));
  const recorder::RecycleResult r =
      recorder::RecycleOldest(Path("rec"), space.freeToCaller + 1, [&](const std::string& p) { return p != recycled; });
  ASSERT_EQ(r.deleted, std::vector<std::string>{recycled}) << r.error;
  EXPECT_FALSE(std::filesystem::exists(recycled));

  // cam02: the recorder's source is a 2-second clip; when it ends the camera
  // is offline until the clip is opened again a second later.
  ASSERT_EQ(RunDravix({"write-test-recording", Path("clip.dat"), "--seconds", "2", "--codec", "mjpeg", "--size",
                       "320x240", "--fps", "10", "--home", home()})
                .status,
            0);
  ASSERT_EQ(RunDravix({"export", Path("clip.dat"), Path("clip.mkv"), "--home", home()}).status, 0);
  ProgramOptions o;
  o.env = {{"DRAVIX_IPC_NAMESPACE", "causes" + std::to_string(::getpid())}};
  const ProgramResult rec = RunDravix(
      {"record", "--source", "2=" + Path("clip.mkv"), "--dir", Path("rec"), "--seconds", "4.5", "--home", home()}, o);
  ASSERT_EQ(rec.status, 0) << rec.err;

  const ProgramResult t = RunDravix({"timeline", Path("rec"), "--json", "--home", home()}, o);
  ASSERT_EQ(t.status, 0) << t.err;
  const nlohmann::json j = nlohmann::json::parse(t.out);
  EXPECT_EQ(Causes(j, "cam01"), (std::vector<std::string>{"schedule", "damaged"})) << t.out;
  EXPECT_EQ(Causes(j, "cam03"), (std::vector<std::string>{"recycled"})) << t.out;
  const std::vector<std::string> cam02 = Causes(j, "cam02");
  ASSERT_FALSE(cam02.empty()) << t.out;
  for (const std::string& c : cam02) EXPECT_EQ(c, "offline") << t.out;
}

}  // namespace
}  // namespace dravix::test
