#include "dravix/platform/queued_writer.h"
#include "tests/support/test_home.h"

#include <fcntl.h>
#include <unistd.h>

#include <random>
#include <string>

namespace {

using dravix::platform::QueuedWriter;

class QueuedWriterTest : public dravix::test::TestHome {};

// Writes of every kind, as a muxer makes them: runs that continue each
// other, runs larger than a buffer, jumps back over bytes already written
// (a later write wins) and forward past the end (a hole). The file must
// equal the same writes applied in order to a string.
TEST_F(QueuedWriterTest, LandsEveryWriteInOrder) {
  const std::string path = Path("out.bin");
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(fd, 0);
  std::string expected;
  std::mt19937 rng(7);
  {
    QueuedWriter w(fd, 4096, 2);
    int64_t pos = 0;
    for (int i = 0; i < 2000; ++i) {
      const size_t size = rng() % 3 == 0 ? rng() % 10000 : rng() % 300;
      if (rng() % 10 == 0) pos = static_cast<int64_t>(rng() % (expected.size() + 5000));
      std::string bytes(size, '\0');
      for (char& c : bytes) c = static_cast<char>(rng());
      ASSERT_TRUE(w.Write(bytes.data(), size, pos));
      const size_t at = static_cast<size_t>(pos);
      if (expected.size() < at + size) expected.resize(at + size);
      expected.replace(at, size, bytes);
      pos += static_cast<int64_t>(size);
      if (i % 500 == 0) {
        ASSERT_TRUE(w.Flush());
      }
    }
    ASSERT_TRUE(w.Flush()) << w.error();
  }
  ::close(fd);
  EXPECT_EQ(ReadFile(path), expected);
}

// A write the kernel refuses (here: a descriptor open for reading only) is
// reported by Flush and by the Write calls after it, with the OS reason.
TEST_F(QueuedWriterTest, ReportsAFailedWrite) {
  const std::string path = Path("ro.bin");
  WriteFile("ro.bin", "old");
  const int fd = ::open(path.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  QueuedWriter w(fd, 16, 2);
  const std::string bytes(100, 'x');
  w.Write(bytes.data(), bytes.size(), 0);
  EXPECT_FALSE(w.Flush());
  EXPECT_NE(w.error().find("Bad file descriptor"), std::string::npos) << w.error();
  EXPECT_FALSE(w.Write(bytes.data(), bytes.size(), 0));
  ::close(fd);
  EXPECT_EQ(ReadFile(path), "old");
}

}  // namespace
