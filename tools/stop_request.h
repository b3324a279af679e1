// Ctrl-C and SIGTERM for long work: while a StopRequest lives, either signal
// only sets a flag that the work polls, so it can stop where its output
// stays whole; the handlers that were there before come back when it ends.
#pragma once

#include <csignal>

namespace dravix::cli {

class StopRequest {
 public:
  StopRequest();
  ~StopRequest();
  StopRequest(const StopRequest&) = delete;
  StopRequest& operator=(const StopRequest&) = delete;

  // Whether SIGINT or SIGTERM arrived since this request began.
  static bool Requested();

 private:
  struct sigaction int_ {};
  struct sigaction term_ {};
};

}  // namespace dravix::cli
