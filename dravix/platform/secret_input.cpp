#include "dravix/platform/secret_input.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace dravix::platform {

bool StdinIsTerminal() { return isatty(STDIN_FILENO) == 1; }

bool ReadSecretLine(const char* prompt, std::string* out) {
  if (!StdinIsTerminal()) return false;
  std::fputs(prompt, stderr);
  std::fflush(stderr);
  termios saved{};
  const bool haveSaved = tcgetattr(STDIN_FILENO, &saved) == 0;
  if (haveSaved) {
    termios quiet = saved;
    quiet.c_lflag &= static_cast<tcflag_t>(~ECHO);
    quiet.c_lflag |= ECHONL;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  std::string line;
  const bool ok = static_cast<bool>(std::getline(std::cin, line));
  if (haveSaved) tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
  if (!ok) {
    std::fputc('\n', stderr);
    return false;
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  *out = line;
  return true;
}

}  // namespace dravix::platform
