// Progress for long work: a redrawn bar on a terminal, plain "NN%" lines
// (one per whole-percent change) when standard error is not a terminal.
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
  bool finished_ = false;
};

}  // namespace dravix::cli
