#include "dravix/base/zfile.h"
#include "dravix/platform/files.h"
#include "dravix/platform/named_mutex.h"
#include "tests/support/test_home.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

namespace {

using dravix::test::TestHome;

TEST(PathArithmetic, FilePathOnBothSeparators) {
  struct Case {
    const char* in;
    const char* out;
  } cases[] = {
      {"name", "name"},   {"\\name", "\\name"},       {"C:\\a\\b.txt", "C:\\a"},
      {"/name", "/name"}, {"/srv/a/b.txt", "/srv/a"}, {"C:\\a/b\\c", "C:\\a/b"},
      {"", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(GetFilePATH(c.in), c.out) << c.in;
}

TEST(PathArithmetic, TitleFormsKeepTheirArithmetic) {
  EXPECT_EQ(GetFileTitle("C:\\Rec\\cam01.dat"), "");
  // QUIRK(file-title-arithmetic)
  EXPECT_EQ(GetFileTitle("C:\\Rec.v2\\cam01"), "ca");  // 9 - 6 - 1 characters from 10
  EXPECT_EQ(GetFileTitle("/srv/rec.v2/cam01"), "ca");  // 11 - 8 - 1 from 12
  EXPECT_EQ(GetFileTitle("/srv/rec.v2/cam01"), GetFileTitle("\\srv\\rec.v2\\cam01"));
  EXPECT_EQ(GetFileTitle("noseparator"), "");
  EXPECT_EQ(GetFileTitle("a.b.c\\xyz"), "x");     // 5 - 3 - 1 = 1 character from 6
  EXPECT_EQ(GetFileTitle("C:\\Rec.v2\\c"), "c");  // cut at the end of the text

  // The two-argument form copies the remainder; without a separator after
  // the first character the output is untouched.
  const struct {
    const char* in;
    const char* out;
  } cases[] = {{"C:\\Rec\\cam01.dat", "cam01.dat"},
               {"/srv/rec/cam02.idx", "cam02.idx"},
               {"\\cam", "untouched"},
               {"", "untouched"},
               {"plain", "untouched"},
               {"C:\\Rec\\", ""}};
  for (const auto& c : cases) {
    char out[64] = "untouched";
    GetFileTitle(c.in, out);
    EXPECT_STREQ(out, c.out) << c.in;
  }
}

TEST(Wildcards, WindowsRules) {
  using dravix::platform::MatchWildcard;
  // QUIRK(star-dot-star): a trailing ".*" also matches names without a dot; case is ignored.
  EXPECT_TRUE(MatchWildcard("*.*", "README") && MatchWildcard("cam??.*", "cam01") && MatchWildcard("d*.*", "d"));
  EXPECT_TRUE(MatchWildcard("*.avi", "CAM01.AVI"));
  EXPECT_FALSE(MatchWildcard("*.avi", "cam01.avi.idx"));
  EXPECT_FALSE(MatchWildcard("cam??.*", "cam1.dat"));
}

class Files : public TestHome {
 protected:
  void Touch(const std::string& name) { WriteFile(name, "x"); }
};

TEST(ModulePath, DefaultIsTheExecutablesFolderNotTheLibrarys) {
  SetModulePath(nullptr);
  unsetenv("DRAVIX_HOME");
  const std::string folder = GetModulePath();
  ASSERT_FALSE(folder.empty());
  EXPECT_EQ(folder.back(), '/');
  // The library is linked into the test binary: the folder is the binary's.
  char exe[4096];
  const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  ASSERT_GT(n, 0);
  EXPECT_EQ(std::string(exe, static_cast<size_t>(n)).rfind(folder, 0), 0u);
}

TEST(ModulePath, EnvironmentThenExplicitSettingWinAndKeepTheSeparator) {
  SetModulePath(nullptr);
  setenv("DRAVIX_HOME", "/srv/rec", 1);
  EXPECT_EQ(GetModulePath(), "/srv/rec/");
  SetModulePath("/opt/live/");
  EXPECT_EQ(GetModulePath(), "/opt/live/");
  SetModulePath("/opt/player");
  EXPECT_EQ(GetModulePath(), "/opt/player/");
  SetModulePath("");
  EXPECT_EQ(GetModulePath(), "/srv/rec/");
  unsetenv("DRAVIX_HOME");
}

TEST_F(Files, ExistsAndSize) {
  WriteFile("a.bin", std::string(1234, 'z'));
  EXPECT_EQ(FileExists(Path("a.bin").c_str()), 1);
  EXPECT_EQ(FileExists(home().c_str()), 1);  // folders count
  EXPECT_EQ(FileExists(Path("missing").c_str()), 0);
  EXPECT_EQ(FileSize(Path("a.bin").c_str()), 1234);
  EXPECT_EQ(FileSize(Path("missing").c_str()), -1);
}

TEST_F(Files, DelAllFileDeletesMatchesOnlyAndKeepsSubfolders) {
  Touch("a.avi");
  Touch("b.AVI");
  Touch("c.idx");
  std::filesystem::create_directory(Path("sub"));
  Touch("sub/d.avi");
  EXPECT_EQ(DelAllFile(home(), "*.avi", 0), 1);
  EXPECT_FALSE(FileExists(Path("a.avi").c_str()));
  EXPECT_FALSE(FileExists(Path("b.AVI").c_str()));
  EXPECT_TRUE(FileExists(Path("c.idx").c_str()));
  EXPECT_TRUE(FileExists(Path("sub/d.avi").c_str()));
  EXPECT_EQ(DelAllFile(home(), "*.avi", 1), 0);  // no match at all ends in another error
  EXPECT_EQ(DelAllFile(Path("nowhere/"), "*.*", 0), 0);
  // Everything but the subfolder goes; the folder stays since it is not empty.
  EXPECT_EQ(DelAllFile(home(), "*.*", 1), 1);
  EXPECT_FALSE(FileExists(Path("c.idx").c_str()));
  EXPECT_TRUE(FileExists(home().c_str()));
  EXPECT_EQ(DelAllFile(Path("sub/"), "*.*", 1), 1);
  EXPECT_FALSE(FileExists(Path("sub").c_str()));
}

TEST_F(Files, DelDirectoryRemovesTreesButNotThroughLinks) {
  std::filesystem::create_directories(Path("rec/2008/03"));
  Touch("rec/top.dat");
  Touch("rec/2008/03/cam.dat");
  chmod(Path("rec/2008/03/cam.dat").c_str(), 0444);  // read-only files go too
  std::filesystem::create_directories(Path("outside"));
  Touch("outside/keep.dat");
  std::filesystem::create_directory_symlink(Path("outside"), Path("rec/link"));
  EXPECT_EQ(DelDirectory(Path("rec/")), 1);
  EXPECT_FALSE(FileExists(Path("rec").c_str()));
  EXPECT_TRUE(FileExists(Path("outside/keep.dat").c_str()));
  EXPECT_EQ(DelDirectory(Path("rec/")), 1);  // missing: still 1
}

TEST_F(Files, DelDirectoryWithoutTrailingSeparatorRemovesNothingInside) {
  std::filesystem::create_directories(Path("d"));
  Touch("d/inside.dat");
  Touch("dx.dat");  // a sibling that "d" + "*.*" matches as a name, kept
  EXPECT_EQ(DelDirectory(Path("d")), 1);
  EXPECT_TRUE(FileExists(Path("d/inside.dat").c_str()));
  EXPECT_TRUE(FileExists(Path("dx.dat").c_str()));
}

TEST_F(Files, DiskSpaceOfTheProgramFolder) {
  tagDiskSpace space{};
  ASSERT_EQ(GetDiskSpace(home().c_str(), space), 1);
  EXPECT_GT(space.totalBytes, 0u);
  EXPECT_TRUE(space.freeBytesAvailable <= space.totalFreeBytes && space.totalFreeBytes <= space.totalBytes);
  // Other processes write meanwhile: the second reading is only close.
  EXPECT_NEAR(static_cast<double>(GetDiskFreeSpaceA(home().c_str())), static_cast<double>(space.totalFreeBytes), 64e6);
  std::string folder = home();
  EXPECT_EQ(CheckDiskFreeSize(0, folder.data()), 1);
  EXPECT_EQ(CheckDiskFreeSize(UINT64_MAX, folder.data()), 0);
  EXPECT_EQ(CheckDiskFreeSize(space.freeBytesAvailable / 2, folder.data()), 1);
  // A folder that does not exist yet is on its parent's disk.
  EXPECT_EQ(GetDiskSpace(Path("not/yet/made/").c_str(), space), 1);
  std::string missing = Path("not/yet/made/");
  EXPECT_EQ(CheckDisk(missing.data()), 1);  // retried on the root
  std::string tiny = "zz";
  EXPECT_EQ(CheckDisk(tiny.data()), 0);  // no such path, too short to retry
}

// The second process of the test below: this same test program, started
// again to run only this case, which holds the named mutex and reports on
// the descriptor it was given. Disabled, so it never runs on its own.
TEST(MutexHolder, DISABLED_HoldForParent) {
  const char* name = std::getenv("DRAVIX_TEST_HOLD_MUTEX");
  const char* fd = std::getenv("DRAVIX_TEST_READY_FD");
  if (name == nullptr || fd == nullptr) GTEST_SKIP();
  auto m = dravix::platform::NamedMutex::Open(name);
  const char ok = m && m->Lock() == WAIT_OBJECT_0 ? 'y' : 'n';
  if (write(std::atoi(fd), &ok, 1) != 1) _exit(2);
  for (;;) pause();
}

// IsMutexExisting against a second real process.
TEST_F(Files, MutexSeenWhileAnotherProcessHoldsItAndNotAfterItIsKilled) {
  const char* name = "Live Recorder Instance";
  EXPECT_EQ(IsMutexExisting(name), 0);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(ready[0]);
    setenv("DRAVIX_TEST_HOLD_MUTEX", name, 1);
    setenv("DRAVIX_TEST_READY_FD", std::to_string(ready[1]).c_str(), 1);
    execl("/proc/self/exe", "tests_base", "--gtest_filter=MutexHolder.DISABLED_HoldForParent",
          "--gtest_also_run_disabled_tests", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(ready[1]);
  char ok = 0;
  ASSERT_EQ(read(ready[0], &ok, 1), 1);
  ASSERT_EQ(ok, 'y');
  EXPECT_EQ(IsMutexExisting(name), 1);
  // The other process owns the mutex: a timed lock here fails.
  auto mine = dravix::platform::NamedMutex::Open(name);
  ASSERT_NE(mine, nullptr);
  EXPECT_EQ(mine->Lock(50), WAIT_TIMEOUT);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(IsMutexExisting(name), 1);         // we still hold it open ourselves
  EXPECT_EQ(mine->Lock(1000), WAIT_OBJECT_0);  // the dead owner left nothing behind
  mine->Unlock();
  mine.reset();
  EXPECT_EQ(IsMutexExisting(name), 0);
  close(ready[0]);
}

TEST_F(Files, NamedMutexExcludesThreadsThroughSeparateHandles) {
  auto a = dravix::platform::NamedMutex::Open("Share Data Mutex");
  auto b = dravix::platform::NamedMutex::Open("Share Data Mutex");
  ASSERT_TRUE(a && b);
  ASSERT_EQ(a->Lock(), WAIT_OBJECT_0);
  ASSERT_EQ(a->Lock(), WAIT_OBJECT_0);  // recursive for its owner
  std::thread other([&] { EXPECT_EQ(b->Lock(20), WAIT_TIMEOUT); });
  other.join();
  a->Unlock();
  a->Unlock();
  std::thread later([&] {
    EXPECT_EQ(b->Lock(1000), WAIT_OBJECT_0);
    b->Unlock();
  });
  later.join();
}

}  // namespace
