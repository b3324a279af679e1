// `dravix cut` never loses what it was given: a destination that is the
// source (or its index) under any name is refused, and a cut that fails, is
// interrupted or is killed at any of its file operations leaves the old
// destination and index byte for byte, and no stray file.
#include "tests/tools/media_tool_util.h"

#include <gtest/gtest.h>

#include <csignal>

namespace dravix::test {
namespace {

class MediaCut : public TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    WriteTestRecording(Path("cam01.dat"));
    // The new clip as an undisturbed cut makes it, and an older clip already
    // standing at the destination.
    fs::create_directory(Path("ref"));
    ASSERT_EQ(Cut(Path("ref/clip.dat"), kNewFrom, kNewTo).status, 0);
    ASSERT_EQ(Cut(Path("clip.dat"), "2008-03-15 12:00:02", "2008-03-15 12:00:05").status, 0);
    before_ = Snapshot(home());
    fresh_ = before_;
    fresh_["clip.dat"] = ReadFile(Path("ref/clip.dat"));
    fresh_["clip.idx"] = ReadFile(Path("ref/clip.idx"));
  }

  static constexpr const char* kNewFrom = "2008-03-15 12:00:06";
  static constexpr const char* kNewTo = "2008-03-15 12:00:12";

  ProgramResult Cut(const std::string& dst, const std::string& from, const std::string& to,
                    const ProgramOptions& options = {}) {
    return RunDravix({"cut", Path("cam01.dat"), dst, "--from", from, "--to", to}, options);
  }
  // Puts the old clip back for the next round.
  void PutOldClipBack() {
    WriteFile("clip.dat", before_.at("clip.dat"));
    WriteFile("clip.idx", before_.at("clip.idx"));
  }
  std::vector<std::string> NewCutArgs() {
    return {"cut", Path("cam01.dat"), Path("clip.dat"), "--from", kNewFrom, "--to", kNewTo};
  }

  FolderBytes before_;  // the folder before the cut under test
  FolderBytes fresh_;   // the folder after a cut that went through
};

TEST_F(MediaCut, RefusesADestinationThatIsTheSourceOrItsIndexUnderAnyName) {
  fs::copy_file(Path("cam01.dat"), Path("base.dat"));
  fs::copy_file(Path("cam01.idx"), Path("base.idx"));
  fs::create_hard_link(Path("cam01.dat"), Path("hard.dat"));
  fs::create_symlink(Path("cam01.dat"), Path("soft.dat"));
  fs::create_symlink(Path("cam01.idx"), Path("other.idx"));  // the destination's index links to the source's
  const FolderBytes start = Snapshot(home());
  const struct {
    std::string src, dst, expect;
  } cases[] = {
      {"cam01.dat", "cam01.dat", "is the source"},         {"cam01.dat", "./cam01.dat", "is the source"},
      {"base.dat", "base.clip", "is the source's index"},  {"base.dat", "base.idx", "is the source's index"},
      {"cam01.dat", "hard.dat", "is the source"},          {"cam01.dat", "soft.dat", "is the source"},
      {"cam01.dat", "other.dat", "is the source's index"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.src + " -> " + c.dst);
    const ProgramResult r =
        RunDravix({"cut", Path(c.src), Path(c.dst), "--from", "2008-03-15 12:00:01", "--to", "2008-03-15 12:00:04"});
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_NE(r.err.find(c.expect), std::string::npos) << r.err;
    EXPECT_EQ(Snapshot(home()), start);
  }
}

TEST_F(MediaCut, ToNotAfterFromIsAUsageErrorThatWritesNothing) {
  for (const auto& [from, to] : {std::pair{"2008-03-15 12:00:05", "2008-03-15 12:00:05"},
                                 std::pair{"2008-03-15 12:00:09", "2008-03-15 12:00:03"}}) {
    const ProgramResult r = Cut(Path("clip.dat"), from, to);
    EXPECT_EQ(r.status, 2) << r.err;
    EXPECT_NE(r.err.find("after --from"), std::string::npos) << r.err;
    EXPECT_EQ(Snapshot(home()), before_);
  }
}

// Stops the cut at each of its file operations in turn and kills it (or
// interrupts it) there. Whatever the point, the folder afterwards holds the
// old clip and index or, once the cut has put the new ones in place, the new
// pair: never a mix, never a stray file.
TEST_F(MediaCut, KilledOrInterruptedAtAnyFileOperationLeavesOldOrNewPairAndNoStrayFile) {
  // Every operation for a kill; every fourth for Ctrl-C, whose handling
  // differs only while the copy runs.
  for (const auto& [signal, step] : {std::pair{SIGKILL, 1}, std::pair{SIGINT, 4}}) {
    int stops = 0;
    for (int n = 1;; n += step) {
      SCOPED_TRACE("signal " + std::to_string(signal) + " at file operation " + std::to_string(n));
      const StopOutcome o = RunStoppedAt(NewCutArgs(), n, signal);
      ASSERT_GE(o.status, 0);
      WaitForNoStage(home());
      const FolderBytes after = Snapshot(home());
      if (!o.stopped) {
        // n is past the cut's last file operation: it ran through.
        EXPECT_EQ(o.status, 0);
        EXPECT_EQ(after, fresh_);
        break;
      }
      ++stops;
      EXPECT_TRUE(after == before_ || after == fresh_) << Describe(after, before_);
      if (after == before_) {
        EXPECT_NE(o.status, 0);
      }
      PutOldClipBack();
      ASSERT_LT(n, 500) << "the cut never ran through";
    }
    EXPECT_GT(stops, 10 / step);
  }
}

// Each file operation of the cut fails in turn: the cut says why and leaves
// the old pair, or (where a failed read has a fallback) makes the same clip
// as an undisturbed cut.
TEST_F(MediaCut, EveryFailedFileOperationIsReportedAndKeepsTheOldPair) {
  const int calls = CountFileOperations(NewCutArgs());
  ASSERT_GT(calls, 10);
  PutOldClipBack();
  int reported = 0;
  for (int n = 1; n <= calls; ++n) {
    SCOPED_TRACE("failing file operation " + std::to_string(n) + " of " + std::to_string(calls));
    ProgramOptions o;
    o.env = {{"DRAVIX_FAIL_IO", std::to_string(n)}};
    const ProgramResult r = RunDravix(NewCutArgs(), o);
    const FolderBytes after = Snapshot(home());
    if (r.status == 0) {
      EXPECT_EQ(after, fresh_);
      PutOldClipBack();
      continue;
    }
    ++reported;
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("Input/output error"), std::string::npos) << r.err;
    EXPECT_EQ(after, before_) << Describe(after, before_);
  }
  EXPECT_GT(reported, calls / 2);
}

}  // namespace
}  // namespace dravix::test
