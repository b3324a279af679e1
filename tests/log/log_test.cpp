#include "dravix/log/ilog.h"
#include "tests/support/test_home.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

std::atomic<__int64> g_free{__int64{1} << 40};
__int64 TestFreeSpace(const char*) { return g_free.load(); }

class Log : public dravix::test::TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    dravix::log::SetFreeSpaceProbe(TestFreeSpace);
    g_free = __int64{1} << 40;
  }
  void TearDown() override {
    dravix::log::SetFreeSpaceProbe(nullptr);
    dravix::log::SetEmbeddedBaseFolder(nullptr);
    TestHome::TearDown();
  }
  std::string Read(const std::string& name) { return ReadFile(Path(name)); }
  static std::uintmax_t Size(const std::string& path) {
    std::error_code ec;
    const auto n = std::filesystem::file_size(path, ec);
    return ec ? 0 : n;
  }
  // A 100-byte line ending in "\r\n".
  static std::string Line(int thread, int n) {
    std::string s = "T" + std::to_string(thread) + " N" + std::to_string(n) + " ";
    s.append(98 - s.size(), static_cast<char>('a' + (n + thread) % 26));
    return s + "\r\n";
  }
};

TEST_F(Log, ANamedLogAppendsTextExactly) {
  WriteFile("Live.log", "kept\r\n");
  ZBaseLog log;
  EXPECT_FALSE(log.Write("x"));
  EXPECT_FALSE(log.WriteV("%d", 1));  // never named
  EXPECT_EQ(log.GetFilePath(), "");
  ASSERT_TRUE(log.SetFilename("Live.log"));
  EXPECT_EQ(log.GetFilePath(), Path("Live.log"));
  EXPECT_TRUE(log.Write("Schedule Event : 2008/03/15 , Camera03 ZE_START_RECORDING\r\n"));
  EXPECT_TRUE(log.WriteV("Schedule Event : %s , Camera%02d ZE_STOP_RECORDING\r\n", "2008/03/15", 4));
  EXPECT_TRUE(log.Write(""));
  const std::string big(3000, 'b');
  EXPECT_TRUE(log.WriteV("%s|%d", big.c_str(), 7));  // longer than any fixed buffer
  EXPECT_EQ(Read("Live.log"),
            "kept\r\nSchedule Event : 2008/03/15 , Camera03 ZE_START_RECORDING\r\n"
            "Schedule Event : 2008/03/15 , Camera04 ZE_STOP_RECORDING\r\n" +
                big + "|7");
}

TEST_F(Log, OpenFailureLeavesTheLogClosed) {
  ZBaseLog log;
  EXPECT_FALSE(log.SetFilename("no/such/folder.log"));
  EXPECT_FALSE(log.IsOpen());
  EXPECT_FALSE(log.Write("x"));
  EXPECT_FALSE(log.WriteV("x"));
}

TEST_F(Log, AnOversizedFileRotatesWhenNamed) {
  WriteFile("Big.log", std::string(ZBaseLog::kRotateSize, 'o'));  // exactly the limit: kept
  WriteFile("Over.log", std::string(ZBaseLog::kRotateSize + 1, 'p'));
  ZBaseLog exact, over;
  ASSERT_TRUE(exact.SetFilename("Big.log"));
  EXPECT_FALSE(std::filesystem::exists(Path("OLDBig.log")));
  ASSERT_TRUE(over.SetFilename("Over.log"));
  EXPECT_EQ(Size(Path("OLDOver.log")), 3145729u);
  EXPECT_EQ(Size(Path("Over.log")), 0u);
  EXPECT_TRUE(over.Write("fresh\r\n"));
  EXPECT_EQ(Read("Over.log"), "fresh\r\n");
}

TEST_F(Log, GrowthRotatesOnlyAtTheHundredthWrite) {
  WriteFile("Live.log", std::string(ZBaseLog::kRotateSize - 500, 'x'));
  ZBaseLog log;
  ASSERT_TRUE(log.SetFilename("Live.log"));
  for (int n = 1; n <= 99; ++n) ASSERT_TRUE(log.Write(Line(0, n).c_str()));
  // 99 lines of 100 bytes: well past the limit, still one file.
  EXPECT_EQ(Size(Path("Live.log")), ZBaseLog::kRotateSize - 500 + 9900);
  EXPECT_FALSE(std::filesystem::exists(Path("OLDLive.log")));
  ASSERT_TRUE(log.Write(Line(0, 100).c_str()));
  EXPECT_EQ(Size(Path("OLDLive.log")), ZBaseLog::kRotateSize - 500 + 10000);
  EXPECT_EQ(Size(Path("Live.log")), 0u);
  EXPECT_TRUE(log.IsOpen());
  ASSERT_TRUE(log.Write("next\r\n"));
  EXPECT_EQ(Read("Live.log"), "next\r\n");

  // The counter restarted: the new generation is checked at its own 100th write.
  for (int n = 2; n <= 99; ++n) ASSERT_TRUE(log.Write("y"));
  WriteFile("OLDLive.log", "stale");
  // Grow the new generation behind the log's back, then reach the 100th write.
  {
    ZBaseLog other;
    ASSERT_TRUE(other.SetFilename("Live.log"));
    ASSERT_TRUE(other.Write(std::string(ZBaseLog::kRotateSize, 'z').c_str()));
  }
  ASSERT_TRUE(log.Write("last"));
  // The second rotation replaced the old generation.
  EXPECT_EQ(Size(Path("OLDLive.log")), 6u + 98u + ZBaseLog::kRotateSize + 4u);
  EXPECT_EQ(Read("OLDLive.log").substr(0, 7), "next\r\ny");
  EXPECT_EQ(Size(Path("Live.log")), 0u);
}

TEST_F(Log, DiskGuardDropsWritesFromTheHundredthOn) {
  ZBaseLog log;
  ASSERT_TRUE(log.SetFilename("Recycle.log"));
  g_free = ZBaseLog::kMinFreeSpace - 1;
  for (int n = 1; n <= 99; ++n) ASSERT_TRUE(log.Write("a")) << n;  // only every 100th write looks
  EXPECT_FALSE(log.Write("b"));
  EXPECT_FALSE(log.Write("c"));        // the counter was not reset: checked again
  EXPECT_TRUE(log.WriteV("%s", "d"));  // TRUE whatever Write said; the text is still dropped
  g_free = -1;                         // an unknown figure is not space
  EXPECT_FALSE(log.Write("e"));
  g_free = ZBaseLog::kMinFreeSpace;  // exactly 30 MB is enough
  EXPECT_TRUE(log.Write("f"));
  g_free = 0;
  for (int n = 1; n <= 99; ++n) ASSERT_TRUE(log.Write("g")) << n;
  EXPECT_FALSE(log.Write("h"));
  EXPECT_EQ(Read("Recycle.log"), std::string(99, 'a') + "f" + std::string(99, 'g'));
}

TEST_F(Log, EmbeddedModelLogsToTheDriveFolderAndRotatesIntoTheProgramFolder) {
  WriteFile("Live.ini", "[MODEL]\nZEPLOEMBEDED=1\n");
  const std::string drive = dravix::test::MakeTempFolder("dravix-drive-d-");
  dravix::log::SetEmbeddedBaseFolder(drive.substr(0, drive.size() - 1).c_str());
  EXPECT_EQ(dravix::log::EmbeddedBaseFolder(), drive);
  std::ofstream(drive + "Live.log") << std::string(ZBaseLog::kRotateSize + 1, 'q');
  ZBaseLog log;
  ASSERT_TRUE(log.SetFilename("Live.log"));
  EXPECT_EQ(log.GetFilePath(), drive + "Live.log");
  EXPECT_EQ(Size(Path("OLDLive.log")), 3145729u);
  EXPECT_TRUE(log.Write("on d\r\n"));
  EXPECT_EQ(ReadFile(drive + "Live.log"), "on d\r\n");
  dravix::test::RemoveTree(drive);
}

// Drive D on its own file system: a rename cannot carry the log into the
// program folder, so rotation must copy it there and start an empty log.
TEST_F(Log, EmbeddedRotationAcrossFileSystemsKeepsOneOlderGeneration) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a tmpfs as drive D";
  if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    GTEST_SKIP() << "no private mount namespace: " << std::strerror(errno);
  }
  const std::string drive = dravix::test::MakeTempFolder("dravix-drive-d-");
  ASSERT_EQ(mount("tmpfs", drive.c_str(), "tmpfs", 0, "size=32m"), 0) << std::strerror(errno);
  struct stat a {
  }, b{};
  ASSERT_EQ(stat(drive.c_str(), &a), 0);
  ASSERT_EQ(stat(Path("").c_str(), &b), 0);
  ASSERT_NE(a.st_dev, b.st_dev);

  WriteFile("Live.ini", "[MODEL]\nZEPLOEMBEDED=1\n");
  WriteFile("OLDLive.log", "generation before");
  dravix::log::SetEmbeddedBaseFolder(drive.c_str());
  std::ofstream(drive + "Live.log") << std::string(ZBaseLog::kRotateSize + 1, 'q');
  {
    ZBaseLog log;
    ASSERT_TRUE(log.SetFilename("Live.log"));  // rotated when named
    EXPECT_EQ(Size(Path("OLDLive.log")), ZBaseLog::kRotateSize + 1u);
    EXPECT_EQ(Size(drive + "Live.log"), 0u);
    // Growth by writing rotates at the 100th write, again across.
    const std::string chunk(ZBaseLog::kRotateSize / 99 + 1, 'w');
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(log.Write(chunk.c_str()));
    EXPECT_EQ(Size(Path("OLDLive.log")), 100 * chunk.size());
    EXPECT_EQ(Size(drive + "Live.log"), 0u);
    EXPECT_TRUE(log.Write("after\r\n"));
    EXPECT_EQ(ReadFile(drive + "Live.log"), "after\r\n");
  }
  std::vector<std::string> left;
  for (const auto& e : std::filesystem::directory_iterator(Path(""))) left.push_back(e.path().filename());
  std::sort(left.begin(), left.end());
  EXPECT_EQ(left, (std::vector<std::string>{"Live.ini", "OLDLive.log"}));  // no staged copy left over
  umount2(drive.c_str(), MNT_DETACH);
  dravix::test::RemoveTree(drive);
}

TEST_F(Log, TheFourLogsAreDistinctSingletons) {
  std::set<ZBaseLog*> all{ILog::Instance(), IScheduleLog::Instance(), ILiveLog::Instance(), IRecycleLog::Instance()};
  EXPECT_EQ(all.size(), 4u);
  EXPECT_EQ(ILog::Instance(), ILog::Instance());
  ASSERT_TRUE(ILiveLog::Instance()->SetFilename("Live.log"));
  EXPECT_TRUE(ILiveLog::Instance()->Write("live"));
  EXPECT_FALSE(IScheduleLog::Instance()->Write("unnamed"));
  EXPECT_EQ(Read("Live.log"), "live");
}

// Every line written, whole, in one of the two generations.
void ExpectWholeLines(const std::string& text, int threads, int perThread, bool allPresent) {
  std::set<std::pair<int, int>> seen;
  std::istringstream in(text);
  std::string line;
  size_t count = 0;
  while (std::getline(in, line, '\n')) {
    ++count;
    int t = -1, n = -1;
    ASSERT_EQ(std::sscanf(line.c_str(), "T%d N%d ", &t, &n), 2) << "torn line: " << line.substr(0, 40);
    ASSERT_EQ(line.size(), 99u) << line.substr(0, 40);
    ASSERT_EQ(line.back(), '\r');
    const char fill = static_cast<char>('a' + (n + t) % 26);
    ASSERT_EQ(line.find_first_not_of(fill, line.find(' ', 3) + 1), 98u) << "mixed line: " << line.substr(0, 40);
    EXPECT_TRUE(seen.insert({t, n}).second) << "twice: " << t << " " << n;
  }
  if (allPresent) {
    EXPECT_EQ(count, static_cast<size_t>(threads * perThread));
  }
}

TEST_F(Log, ConcurrentWritersAcrossARotationKeepEveryLineWhole) {
  ZBaseLog log;
  WriteFile("Live.log", std::string(ZBaseLog::kRotateSize - 200000, '#') + "\n");
  ASSERT_TRUE(log.SetFilename("Live.log"));
  constexpr int kThreads = 4, kLines = 1500;  // 600 kB: one rotation on the way
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&log, t] {
      for (int n = 0; n < kLines; ++n) log.Write(Line(t, n).c_str());
    });
  for (auto& th : threads) th.join();
  std::string old = Read("OLDLive.log");
  ASSERT_FALSE(old.empty());
  ASSERT_EQ(old.find('#'), 0u);
  old.erase(0, old.find('\n') + 1);
  ExpectWholeLines(old + Read("Live.log"), kThreads, kLines, true);
}

TEST_F(Log, WritersInSeveralProcessesNeverTearALine) {
  constexpr int kProcs = 3, kLines = 2000;
  std::vector<pid_t> children;
  for (int p = 0; p < kProcs; ++p) {
    const pid_t pid = fork();
    if (pid == 0) {
      ZBaseLog log;
      bool ok = log.SetFilename("Shared.log");
      for (int n = 0; n < kLines && ok; ++n) ok = log.Write(Line(p, n).c_str());
      _exit(ok ? 0 : 1);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  ExpectWholeLines(Read("Shared.log"), kProcs, kLines, true);
}

}  // namespace
