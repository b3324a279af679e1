// `dravix check` agrees with `dravix probe`: it says "intact" only when every
// reader answers for the file afterwards, says what is still wrong
// otherwise, and `--dry-run` changes nothing. Its repair reports a write or
// truncation that fails, with the reason.
#include "tests/tools/media_tool_util.h"

#include <gtest/gtest.h>

#include <fstream>

namespace dravix::test {
namespace {

class MediaCheck : public TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    WriteTestRecording(Path("cam01.dat"));
  }
  // Overwrites bytes of a file in place.
  static void Poke(const std::string& path, std::streamoff at, const std::string& bytes) {
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(at);
    f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(f.good());
  }
  // A copy of the test recording (and index) torn in the middle of its data.
  void MakeTorn(const std::string& name) {
    fs::copy_file(Path("cam01.dat"), Path(name + ".dat"));
    fs::copy_file(Path("cam01.idx"), Path(name + ".idx"));
    fs::resize_file(Path(name + ".dat"), 2000000);
  }
};

TEST_F(MediaCheck, SaysIntactOnlyWhenProbeAcceptsTheFileAfterwards) {
  const struct {
    std::string name;
    void (*damage)(const std::string& dat, const std::string& idx);
    bool repairable;    // check's repair makes it whole
    std::string still;  // what check must still name when it is not
  } cases[] = {
      {"intact", [](const std::string&, const std::string&) {}, true, ""},
      {"torn", [](const std::string& dat, const std::string&) { fs::resize_file(dat, 2000000); }, true, ""},
      {"tag", [](const std::string& dat, const std::string&) { Poke(dat, 69, "XXXX"); }, false,
       "stream record 0 at byte 69: bad tag (\"STRM\" expected) [E_UNEXPECTED 0x8000FFFF]"},
      {"streams", [](const std::string& dat, const std::string&) { Poke(dat, 44, "\xff"); }, false,
       "bad tag (\"STRM\" expected)"},
      {"index", [](const std::string&, const std::string& idx) { Poke(idx, 16 + 16 * 5 + 8, "\xff\xff\xff\x7f"); },
       false, "index entry 5: offset 2147483647 outside the data area"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string dat = Path(c.name + ".dat"), idx = Path(c.name + ".idx");
    fs::copy_file(Path("cam01.dat"), dat);
    fs::copy_file(Path("cam01.idx"), idx);
    c.damage(dat, idx);
    const ProgramResult check = RunDravix({"check", dat});
    const ProgramResult probe = RunDravix({"probe", dat});
    EXPECT_EQ(check.status, c.repairable ? 0 : 1) << check.out << check.err;
    EXPECT_EQ(probe.status, check.status) << probe.out;
    EXPECT_EQ(check.out.find("intact") != std::string::npos, c.repairable) << check.out;
    if (!c.repairable) {
      EXPECT_NE(check.err.find("still wrong: "), std::string::npos) << check.err;
      EXPECT_NE(check.err.find(c.still), std::string::npos) << check.err;
    }
  }
}

TEST_F(MediaCheck, DryRunSaysWhatTheRepairWillDoAndWritesNothing) {
  MakeTorn("torn");
  const FolderBytes start = Snapshot(home());
  const ProgramResult dry = RunDravix({"check", "--dry-run", Path("torn.dat")});
  EXPECT_EQ(dry.status, 1) << dry.err;
  EXPECT_EQ(Snapshot(home()), start);
  const ProgramResult real = RunDravix({"check", Path("torn.dat")});
  ASSERT_EQ(real.status, 0) << real.err;
  // The dry run announced exactly the repair that was then made.
  const auto between = [](const std::string& text, const std::string& a, const std::string& b) {
    const size_t at = text.find(a);
    const size_t end = at == std::string::npos ? at : text.find(b, at);
    return end == std::string::npos ? std::string("(none)") : text.substr(at, end - at);
  };
  EXPECT_EQ(between(dry.err, "the header:", ";"), between(real.out, "the header:", ";")) << dry.err << real.out;
  EXPECT_EQ(between(dry.err, "the index", ";"), between(real.out, "the index", ";")) << dry.err << real.out;
  const ProgramResult after = RunDravix({"check", "--dry-run", Path("torn.dat")});
  EXPECT_EQ(after.status, 0) << after.err;
  EXPECT_NE(after.out.find("nothing to repair"), std::string::npos) << after.out;
}

// Each file operation of the repair fails in turn: check reports it with the
// OS reason and exits 1, or the file comes out exactly as an undisturbed
// repair leaves it; a second check then finishes the job.
TEST_F(MediaCheck, EveryFailedFileOperationOfTheRepairIsReported) {
  MakeTorn("ref");
  ASSERT_EQ(RunDravix({"check", Path("ref.dat")}).status, 0);
  const std::string repairedDat = ReadFile(Path("ref.dat")), repairedIdx = ReadFile(Path("ref.idx"));
  MakeTorn("torn");
  const int calls = CountFileOperations({"check", Path("torn.dat")});
  ASSERT_GT(calls, 2);
  int reported = 0;
  for (int n = 1; n <= calls; ++n) {
    SCOPED_TRACE("failing file operation " + std::to_string(n));
    fs::remove(Path("torn.dat"));
    fs::remove(Path("torn.idx"));
    MakeTorn("torn");
    ProgramOptions o;
    o.env = {{"DRAVIX_FAIL_IO", std::to_string(n)}};
    const ProgramResult r = RunDravix({"check", Path("torn.dat")}, o);
    if (r.status != 0) {
      ++reported;
      EXPECT_EQ(r.status, 1);
      EXPECT_NE(r.err.find("Input/output error"), std::string::npos) << r.err;
      EXPECT_EQ(RunDravix({"check", Path("torn.dat")}).status, 0);
    }
    EXPECT_EQ(ReadFile(Path("torn.dat")), repairedDat);
    EXPECT_EQ(ReadFile(Path("torn.idx")), repairedIdx);
  }
  EXPECT_GE(reported, 3);
}

}  // namespace
}  // namespace dravix::test
