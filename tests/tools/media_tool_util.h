// Helpers for the tests that drive `dravix` on recordings: a test recording,
// a byte-for-byte picture of a folder, and runs stopped at a chosen file
// operation (DRAVIX_FAIL_IO with DRAVIX_FAIL_IO_ACTION=stop).
#pragma once

#include "tests/support/run_program.h"
#include "tests/support/test_home.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace dravix::test {

namespace fs = std::filesystem;

// Every file below a folder, by relative path, with its bytes; folders
// appear as "name/", symlinks as "-> target", FIFOs and devices unread.
using FolderBytes = std::map<std::string, std::string>;

// The outcome of RunStoppedAt.
struct StopOutcome {
  bool stopped = false;  // the program reached the file operation and stopped there
  int status = -1;       // its exit status at the end (128 + signal when killed)
};

inline FolderBytes Snapshot(const std::string& folder) {
  FolderBytes out;
  for (const fs::directory_entry& e : fs::recursive_directory_iterator(folder)) {
    const std::string name = fs::relative(e.path(), folder).string();
    if (e.is_symlink()) {
      out[name] = "-> " + fs::read_symlink(e.path()).string();
    } else if (e.is_directory()) {
      out[name + "/"] = "";
    } else if (!e.is_regular_file()) {
      out[name] = "(special file)";
    } else {
      std::ifstream in(e.path(), std::ios::binary);
      std::ostringstream s;
      s << in.rdbuf();
      out[name] = s.str();
    }
  }
  return out;
}

// The names that differ between two snapshots, for failure messages.
inline std::string Describe(const FolderBytes& a, const FolderBytes& b) {
  std::string out;
  for (const auto& [name, bytes] : a) {
    const auto it = b.find(name);
    if (it == b.end())
      out += " extra " + name;
    else if (it->second != bytes)
      out += " changed " + name;
  }
  for (const auto& [name, bytes] : b)
    if (a.find(name) == a.end()) out += " missing " + name;
  return out.empty() ? "same" : out;
}

// A 20-second recording from 2008-03-15 12:00:00 (and its index).
inline void WriteTestRecording(const std::string& path) {
  const ProgramResult r =
      RunDravix({"write-test-recording", path, "--seconds", "20", "--start", "2008-03-15 12:00:00"});
  ASSERT_EQ(r.status, 0) << r.err;
}

// Runs `dravix args` until its `n`th file operation, sends `signal` there
// (with SIGCONT after it unless it is SIGKILL) and waits for its end. When
// the program ends before its `n`th operation, `stopped` is false.
inline StopOutcome RunStoppedAt(const std::vector<std::string>& args, int n, int signal) {
  ProgramOptions o;
  o.env = {{"DRAVIX_FAIL_IO", std::to_string(n)}, {"DRAVIX_FAIL_IO_ACTION", "stop"}};
  const pid_t pid = StartDravix(args, o);
  StopOutcome out;
  if (pid <= 0) return out;
  int raw = 0;
  while (::waitpid(pid, &raw, WUNTRACED) < 0) {
    if (errno != EINTR) return out;
  }
  if (WIFSTOPPED(raw)) {
    out.stopped = true;
    ::kill(pid, signal);
    if (signal != SIGKILL) ::kill(pid, SIGCONT);
    out.status = WaitProgram(pid);
    return out;
  }
  out.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  return out;
}

// How many file operations `dravix args` makes (found with stopped runs,
// each killed where it stops: run it where that does no harm).
inline int CountFileOperations(const std::vector<std::string>& args) {
  // The largest n at which the program still stops: double, then halve.
  int low = 0, high = 1;
  while (RunStoppedAt(args, high, SIGKILL).stopped) {
    low = high;
    high *= 2;
    if (high > (1 << 16)) return -1;
  }
  while (high - low > 1) {
    const int mid = (low + high) / 2;
    (RunStoppedAt(args, mid, SIGKILL).stopped ? low : high) = mid;
  }
  return low;
}

// Waits (up to 5 s) until `folder` holds no staging folder of a cut.
inline void WaitForNoStage(const std::string& folder) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  for (;;) {
    bool found = false;
    for (const fs::directory_entry& e : fs::directory_iterator(folder))
      found = found || e.path().filename().string().rfind(".dravix-stage-", 0) == 0;
    if (!found) return;
    if (std::chrono::steady_clock::now() > deadline) {
      ADD_FAILURE() << "a staging folder stays in " << folder;
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

}  // namespace dravix::test
