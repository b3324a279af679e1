#include "dravix/base/notice.h"

#include <atomic>

namespace dravix::base {
namespace {
std::atomic<NoticeSink> g_sink{nullptr};
}  // namespace

void SetNoticeSink(NoticeSink sink) { g_sink.store(sink); }

void Notice(const std::string& line) {
  if (NoticeSink sink = g_sink.load()) sink(line);
}

}  // namespace dravix::base
