// Per-thread queues, registered in a process-wide table while their thread
// lives. A thread_local holder removes the entry when the thread ends, so a
// post to a finished thread fails instead of growing a queue nobody reads.
#include "dravix/platform/message_queue.h"

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace dravix::platform {
namespace {

struct Queue {
  std::mutex m;
  std::deque<std::function<void()>> messages;
};

struct Registry {
  std::mutex m;
  std::unordered_map<ThreadId, std::shared_ptr<Queue>> queues;
};

Registry& Queues() {
  static Registry* registry = new Registry;  // outlives every thread_local holder
  return *registry;
}

std::atomic<ThreadId> g_next_id{1};

struct ThisThread {
  ThreadId id = g_next_id.fetch_add(1);
  std::shared_ptr<Queue> queue = std::make_shared<Queue>();
  ThisThread() {
    std::lock_guard<std::mutex> lock(Queues().m);
    Queues().queues.emplace(id, queue);
  }
  ~ThisThread() {
    std::lock_guard<std::mutex> lock(Queues().m);
    Queues().queues.erase(id);
  }
};

ThisThread& Current() {
  thread_local ThisThread self;
  return self;
}

}  // namespace

ThreadId CurrentThreadId() { return Current().id; }

bool PostThreadMessage(ThreadId thread, std::function<void()> message) {
  std::shared_ptr<Queue> queue;
  {
    std::lock_guard<std::mutex> lock(Queues().m);
    auto it = Queues().queues.find(thread);
    if (it == Queues().queues.end()) return false;
    queue = it->second;
  }
  std::lock_guard<std::mutex> lock(queue->m);
  queue->messages.push_back(std::move(message));
  return true;
}

bool PeekAndDispatchMessage() {
  Queue& queue = *Current().queue;
  std::function<void()> message;
  {
    std::lock_guard<std::mutex> lock(queue.m);
    if (queue.messages.empty()) return false;
    message = std::move(queue.messages.front());
    queue.messages.pop_front();
  }
  if (message) message();
  return true;
}

}  // namespace dravix::platform
