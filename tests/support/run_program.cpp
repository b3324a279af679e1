#include "tests/support/run_program.h"

#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace dravix::test {
namespace {

int StatusOf(int raw) {
  if (WIFEXITED(raw)) return WEXITSTATUS(raw);
  if (WIFSIGNALED(raw)) return 128 + WTERMSIG(raw);
  return -1;
}

// In the child: switches user when asked, sets the environment and runs
// the program; never returns.
[[noreturn]] void Exec(const std::vector<std::string>& args, const ProgramOptions& options) {
  for (const auto& [name, value] : options.env) ::setenv(name.c_str(), value.c_str(), 1);
  if (!options.user.empty()) {
    const passwd* pw = ::getpwnam(options.user.c_str());
    if (pw == nullptr || ::setgid(pw->pw_gid) != 0 || ::setuid(pw->pw_uid) != 0) ::_exit(126);
  }
  const std::string path = DravixPath();
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(path.c_str()));
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  ::execv(path.c_str(), argv.data());
  ::_exit(127);
}

}  // namespace

std::string DravixPath() {
  const char* dir = std::getenv("DRAVIX_TEST_BINARY_DIR");
  if (dir == nullptr) throw std::runtime_error("DRAVIX_TEST_BINARY_DIR is not set");
  return std::string(dir) + "/dravix";
}

ProgramResult RunDravix(const std::vector<std::string>& args, const ProgramOptions& options) {
  int in[2], out[2], err[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe failed");
  }
  const pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    Exec(args, options);
  }
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  // Feed the input and drain both outputs together, so no pipe fills up.
  ProgramResult result;
  size_t fed = 0;
  if (options.input.empty()) {
    ::close(in[1]);
    in[1] = -1;
  }
  ::signal(SIGPIPE, SIG_IGN);
  int open = 2;
  while (open > 0 || in[1] >= 0) {
    pollfd fds[3] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {in[1], POLLOUT, 0}};
    if (::poll(fds, 3, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      char buf[4096];
      const ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
      if (n > 0) {
        (i == 0 ? result.out : result.err).append(buf, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        ::close(fds[i].fd);
        (i == 0 ? out[0] : err[0]) = -1;
        --open;
      }
    }
    if (in[1] >= 0 && fds[2].revents != 0) {
      const ssize_t n = ::write(in[1], options.input.data() + fed, options.input.size() - fed);
      if (n > 0) fed += static_cast<size_t>(n);
      if (n < 0 || fed == options.input.size()) {
        ::close(in[1]);
        in[1] = -1;
      }
    }
  }
  result.status = WaitProgram(pid);
  return result;
}

pid_t StartDravix(const std::vector<std::string>& args, const ProgramOptions& options) {
  const pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    const int null = ::open("/dev/null", O_RDWR);
    ::dup2(null, 0);
    ::dup2(null, 1);
    ::dup2(null, 2);
    Exec(args, options);
  }
  return pid;
}

int WaitProgram(pid_t pid) {
  int raw = 0;
  while (::waitpid(pid, &raw, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return StatusOf(raw);
}

bool CanRunAs(const std::string& user) { return ::geteuid() == 0 && ::getpwnam(user.c_str()) != nullptr; }

std::string RunCommand(const std::string& command, int* status) {
  std::string out;
  if (status != nullptr) *status = -1;
  FILE* p = ::popen(command.c_str(), "r");
  if (p == nullptr) return out;
  char buf[65536];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  const int raw = ::pclose(p);
  if (status != nullptr) *status = raw;
  return out;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace dravix::test
