#include "dravix/platform/atomic_file.h"
#include "tests/support/test_home.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using dravix::platform::ReplaceFileAtomically;

class AtomicFile : public dravix::test::TestHome {
 protected:
  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    DIR* d = ::opendir(home().c_str());
    if (d == nullptr) return names;
    while (const dirent* e = ::readdir(d)) {
      const std::string n = e->d_name;
      if (n != "." && n != "..") names.push_back(n);
    }
    ::closedir(d);
    return names;
  }
};

TEST_F(AtomicFile, ReplacesContentWithExactModeAndNoStrayFile) {
  const std::string path = Path("opt.xml");
  ASSERT_TRUE(ReplaceFileAtomically(path, std::string("old")));
  const mode_t oldMask = ::umask(077);
  std::string error;
  const bool ok = ReplaceFileAtomically(path, std::string("new content"), 0640, &error);
  ::umask(oldMask);
  ASSERT_TRUE(ok) << error;
  EXPECT_EQ(ReadFile(path), "new content");
  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  EXPECT_EQ(Entries(), std::vector<std::string>{"opt.xml"});
}

TEST_F(AtomicFile, MissingFolderFailsSayingWhere) {
  std::string error;
  EXPECT_FALSE(ReplaceFileAtomically(Path("no/such/opt.xml"), std::string("x"), 0644, &error));
  EXPECT_NE(error.find("no/such/opt.xml"), std::string::npos) << error;
}

// A writer killed while the new content is on its way leaves the old file
// whole and nothing else in the folder. The kill is sent once the child
// holds its temporary file open, i.e. mid-write.
TEST_F(AtomicFile, WriterKilledMidWriteLeavesOldFileAndNoStrayFile) {
  const int probe = ::open(home().c_str(), O_TMPFILE | O_WRONLY, 0600);
  if (probe < 0) GTEST_SKIP() << "this file system has no unnamed temporary files";
  ::close(probe);
  const std::string path = Path("opt.xml");
  ASSERT_TRUE(ReplaceFileAtomically(path, std::string("old")));
  const std::string big(256u << 20, 'n');
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ReplaceFileAtomically(path, big);
    ::_exit(0);
  }
  // Wait for the child to hold a file of the program folder open (the
  // target itself is never opened).
  const std::string fds = "/proc/" + std::to_string(child) + "/fd/";
  bool seen = false;
  for (auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
       !seen && std::chrono::steady_clock::now() < until;) {
    for (int fd = 3; fd < 16 && !seen; ++fd) {
      char target[4096];
      const ssize_t n = ::readlink((fds + std::to_string(fd)).c_str(), target, sizeof target - 1);
      if (n <= 0) continue;
      const std::string t(target, static_cast<size_t>(n));
      seen = t.rfind(home(), 0) == 0 && t != path;
    }
  }
  ::kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(seen) << "the writer never opened its temporary file";
  ASSERT_TRUE(WIFSIGNALED(status)) << "the writer finished before it could be killed";
  EXPECT_EQ(ReadFile(path), "old");
  EXPECT_EQ(Entries(), std::vector<std::string>{"opt.xml"});
}

}  // namespace
