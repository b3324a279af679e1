// Positioned writes to a descriptor, done by a thread of their own so that
// the caller's work and the kernel's copy into the file overlap.
//
// Bytes given to Write() are copied into one of a few large buffers; a
// buffer goes to the writing thread when it is full or when the next write
// does not continue it. Buffers are written in the order they were filled,
// so a later write over the same bytes wins, as with plain pwrite. When every
// buffer is queued, Write() waits for one to come back.
//
// A failed write is reported by the next Write() (false) and by Flush();
// nothing given after it is written. The destructor writes what is queued
// and waits for it; call Flush() first to learn whether it all landed.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace dravix::platform {

class QueuedWriter {
 public:
  explicit QueuedWriter(int fd, size_t bufferBytes = size_t{1} << 20, int buffers = 3);
  ~QueuedWriter();
  QueuedWriter(const QueuedWriter&) = delete;
  QueuedWriter& operator=(const QueuedWriter&) = delete;

  // Queues `size` bytes to be written at `offset`. False once a write has
  // failed (see error()).
  bool Write(const void* data, size_t size, int64_t offset);
  // Returns when everything queued so far is in the file; false with
  // error() when a write failed.
  bool Flush();
  // The OS reason of the first failed write; empty while none failed.
  std::string error() const;

 private:
  struct Chunk {
    std::unique_ptr<uint8_t[]> data;
    size_t used = 0;
    int64_t offset = 0;
  };
  void Submit();
  void Run();

  const int fd_;
  const size_t bufferBytes_;
  Chunk current_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Chunk> queued_;
  std::vector<Chunk> spare_;
  int unallocated_;
  bool writing_ = false;
  bool stop_ = false;
  std::atomic<bool> failed_{false};
  std::string error_;
  std::thread thread_;
};

}  // namespace dravix::platform
