// Progress for long work: a redrawn bar on a terminal, plain "NN%" lines
// (one as each tenth is reached) when standard error is not a terminal,
// so a log file is not filled with a hundred lines per command.
#pragma once

#include <string>

namespace dravix::cli {

class Progress {
 public:
  explicit Progress(std::string label);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // percent in 0..100; repeated values are not redrawn.
  void Update(int percent);
  // Ends the bar line (called by the destructor too).
  void Finish();

 private:
  std::string label_;
  bool tty_;
  int last_ = -1;
  int lastLine_ = -1;  // last tenth printed off a terminal
  bool finished_ = false;
};

}  // namespace dravix::cli
