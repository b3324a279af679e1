#include "tools/stop_request.h"

namespace dravix::cli {
namespace {

volatile std::sig_atomic_t g_stop = 0;
extern "C" void OnStopSignal(int) { g_stop = 1; }

}  // namespace

StopRequest::StopRequest() {
  g_stop = 0;
  struct sigaction sa {};
  sa.sa_handler = OnStopSignal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGINT, &sa, &int_);
  sigaction(SIGTERM, &sa, &term_);
}

StopRequest::~StopRequest() {
  sigaction(SIGINT, &int_, nullptr);
  sigaction(SIGTERM, &term_, nullptr);
}

bool StopRequest::Requested() { return g_stop != 0; }

}  // namespace dravix::cli
