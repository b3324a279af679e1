// A child process running tests/live/registry_peer, with its standard input
// and output on pipes.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace dravix::test {

class Peer {
 public:
  explicit Peer(const std::vector<std::string>& steps) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
    std::vector<std::string> args{Program()};
    args.insert(args.end(), steps.begin(), steps.end());
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(in[0], 0);
      dup2(out[1], 1);
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    in_ = in[1];
    out_ = out[0];
  }
  ~Peer() {
    if (pid_ > 0 && !reaped_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    CloseInput();
    if (out_ >= 0) close(out_);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  // The next line of output without its end; "" when nothing comes for
  // `timeoutMs` or the output ends.
  std::string ReadLine(int timeoutMs = 10000) {
    std::string line;
    pollfd p{out_, POLLIN, 0};
    char c;
    while (poll(&p, 1, timeoutMs) > 0 && read(out_, &c, 1) == 1) {
      if (c == '\n') return line;
      line += c;
    }
    return "";
  }
  // Ends the peer's "wait" step.
  void CloseInput() {
    if (in_ >= 0) close(in_);
    in_ = -1;
  }
  void Kill(int signal) { kill(pid_, signal); }
  // The exit code, 128 + signal for a killed peer, or -1 when it is still
  // running after `timeoutMs` (the destructor kills it).
  int Wait(int timeoutMs = 20000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) return -1;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    reaped_ = true;
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  static std::string Program() {
    char self[4096];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string path(self, n > 0 ? static_cast<size_t>(n) : 0);
    return path.substr(0, path.rfind('/') + 1) + "live_registry_peer";
  }

  pid_t pid_ = -1;
  bool reaped_ = false;
  int in_ = -1;
  int out_ = -1;
};

}  // namespace dravix::test
