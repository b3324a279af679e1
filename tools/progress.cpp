#include "tools/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace dravix::cli {

Progress::Progress(std::string label) : label_(std::move(label)), tty_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() { Finish(); }

void Progress::Update(int percent) {
  percent = std::clamp(percent, 0, 100);
  if (percent == last_ || finished_) return;
  last_ = percent;
  if (tty_) {
    constexpr int kWidth = 40;
    const int filled = percent * kWidth / 100;
    std::fprintf(stderr, "\r%s [%s%s] %3d%%", label_.c_str(), std::string(filled, '#').c_str(),
                 std::string(kWidth - filled, '.').c_str(), percent);
  } else {
    if (percent / 10 == lastLine_) return;
    lastLine_ = percent / 10;
    std::fprintf(stderr, "%s %d%%\n", label_.c_str(), percent);
  }
  std::fflush(stderr);
}

void Progress::Finish() {
  if (finished_) return;
  finished_ = true;
  if (tty_ && last_ >= 0) std::fputc('\n', stderr);
}

}  // namespace dravix::cli
