#include "dravix/platform/queued_writer.h"

#include "dravix/platform/fd_io.h"

#include <algorithm>
#include <cstring>

namespace dravix::platform {

QueuedWriter::QueuedWriter(int fd, size_t bufferBytes, int buffers)
    : fd_(fd), bufferBytes_(std::max<size_t>(bufferBytes, 1)), unallocated_(std::max(buffers, 1)) {
  thread_ = std::thread([this] { Run(); });
}

QueuedWriter::~QueuedWriter() {
  if (current_.used > 0) Submit();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

bool QueuedWriter::Write(const void* data, size_t size, int64_t offset) {
  const auto* p = static_cast<const uint8_t*>(data);
  while (size > 0 && !failed_.load(std::memory_order_relaxed)) {
    if (current_.used > 0 &&
        (offset != current_.offset + static_cast<int64_t>(current_.used) || current_.used == bufferBytes_))
      Submit();
    if (current_.data == nullptr) {
      std::unique_lock<std::mutex> lock(mutex_);
      changed_.wait(lock, [this] { return !spare_.empty() || unallocated_ > 0; });
      if (!spare_.empty()) {
        current_ = std::move(spare_.back());
        spare_.pop_back();
      } else {
        --unallocated_;
        lock.unlock();
        current_.data = std::make_unique_for_overwrite<uint8_t[]>(bufferBytes_);
      }
    }
    if (current_.used == 0) current_.offset = offset;
    const size_t n = std::min(size, bufferBytes_ - current_.used);
    std::memcpy(current_.data.get() + current_.used, p, n);
    current_.used += n, p += n, size -= n, offset += static_cast<int64_t>(n);
  }
  return !failed_.load(std::memory_order_relaxed);
}

bool QueuedWriter::Flush() {
  if (current_.used > 0) Submit();
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return queued_.empty() && !writing_; });
  return error_.empty();
}

std::string QueuedWriter::error() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return error_;
}

void QueuedWriter::Submit() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    queued_.push_back(std::move(current_));
  }
  current_ = Chunk{};
  changed_.notify_all();
}

void QueuedWriter::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stop_ || !queued_.empty(); });
    if (queued_.empty()) return;
    Chunk c = std::move(queued_.front());
    queued_.pop_front();
    writing_ = true;
    const bool write = error_.empty();
    lock.unlock();
    std::string why;
    const bool ok = !write || PWriteFd(fd_, c.data.get(), c.used, c.offset, &why);
    lock.lock();
    if (!ok) {
      error_ = why.empty() ? "a write failed" : why;
      failed_.store(true, std::memory_order_relaxed);
    }
    c.used = 0;
    spare_.push_back(std::move(c));
    writing_ = false;
    changed_.notify_all();
  }
}

}  // namespace dravix::platform
