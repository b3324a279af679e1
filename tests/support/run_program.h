// Running the real `dravix` program from a test: its exit status, standard
// output and standard error, with optional input and environment, as the
// test's own user or as another one (for permission tests run as root).
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace dravix::test {

struct ProgramResult {
  int status = -1;  // exit status, or 128 + signal number when killed
  std::string out;
  std::string err;
};

struct ProgramOptions {
  std::string input;                                     // fed to standard input
  std::vector<std::pair<std::string, std::string>> env;  // added to the environment
  std::string user;                                      // run as this user (needs root)
};

// The path of the built `dravix` program ($DRAVIX_TEST_BINARY_DIR/dravix).
std::string DravixPath();

// Runs `dravix args...` to its end.
ProgramResult RunDravix(const std::vector<std::string>& args, const ProgramOptions& options = {});

// Starts `dravix args...` without waiting (output goes to /dev/null); the
// caller signals and reaps it with WaitProgram.
pid_t StartDravix(const std::vector<std::string>& args, const ProgramOptions& options = {});
// Waits for a started program; returns its status as ProgramResult does.
int WaitProgram(pid_t pid);

// True when the tests run as root and `user` exists, so a command can be
// run as that unprivileged user.
bool CanRunAs(const std::string& user);

// Runs a shell command; returns what it printed on standard output and, in
// *status when given, its wait status (-1 when it could not be started).
std::string RunCommand(const std::string& command, int* status = nullptr);

// The lines of a text, without their line ends.
std::vector<std::string> Lines(const std::string& text);

}  // namespace dravix::test
