// Only regular files are opened as recordings, and without blocking: a FIFO
// given to probe, check or cut is refused at once with exit 1. `ptz send`
// to something that is not a serial port sends nothing and exits 1.
#include "tests/tools/media_tool_util.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace dravix::test {
namespace {

class MediaRegularFiles : public TestHome {};

// Runs `dravix args` and fails the test if it is still running after 5 s
// (it is killed then, so a blocking open cannot hang the suite).
ProgramResult RunPromptly(const std::vector<std::string>& args) {
  const pid_t pid = StartDravix(args);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  int raw = 0;
  while (::waitpid(pid, &raw, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(pid, SIGKILL);
      WaitProgram(pid);
      ADD_FAILURE() << "still running after 5 s";
      return {};
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return RunDravix(args);  // it does not block: run again for its messages
}

TEST_F(MediaRegularFiles, AFifoIsRefusedAtOnceByProbeCheckAndCut) {
  WriteTestRecording(Path("cam01.dat"));
  ASSERT_EQ(::mkfifo(Path("pipe.dat").c_str(), 0644), 0);
  ASSERT_EQ(::mkfifo(Path("other.idx").c_str(), 0644), 0);
  const std::string from = "2008-03-15 12:00:01", to = "2008-03-15 12:00:04";
  const std::vector<std::vector<std::string>> commands{
      {"probe", Path("pipe.dat")},
      {"check", Path("pipe.dat")},
      {"check", "--dry-run", Path("pipe.dat")},
      {"cut", Path("pipe.dat"), Path("clip.dat"), "--from", from, "--to", to},
      {"cut", Path("cam01.dat"), Path("pipe.dat"), "--from", from, "--to", to},
      {"cut", Path("cam01.dat"), Path("other.dat"), "--from", from, "--to", to},  // its index is a FIFO
  };
  const FolderBytes start = Snapshot(home());
  for (const auto& args : commands) {
    std::string trace;
    for (const std::string& a : args) trace += a + " ";
    SCOPED_TRACE(trace);
    const ProgramResult r = RunPromptly(args);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE((r.out + r.err).find("a FIFO, not a regular file"), std::string::npos) << r.out << r.err;
    EXPECT_EQ(Snapshot(home()), start);
  }
}

TEST_F(MediaRegularFiles, PtzSendToSomethingThatIsNotASerialPortSendsNothing) {
  WriteFile("PTZ.ini",
            "[COMMON]\r\nNUMBERS=1\r\n[PTZ1]\r\nname=Dome\r\nCodeLength=2\r\nPanLeft=A10A\r\nPanLeft_=A100\r\n");
  WriteFile("port", "");
  ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0644), 0);
  for (const std::string device : {"port", "fifo"}) {
    SCOPED_TRACE(device);
    ProgramOptions o;
    o.env = {{"DRAVIX_COM3", Path(device)}};
    const ProgramResult r = RunDravix({"ptz", "send", "1", "3", "1", "--hold", "0", "--dir", home()}, o);
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_NE(r.err.find("is not a serial port"), std::string::npos) << r.err;
    EXPECT_EQ(ReadFile(Path("port")), "");
  }
}

}  // namespace
}  // namespace dravix::test
