#include "dravix/platform/named_mutex.h"

#include "dravix/platform/ipc_name.h"
#include "dravix/platform/ofd_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>

namespace dravix::platform {
namespace {

constexpr off_t kPresenceByte = 0;
constexpr off_t kMutexByte = 1;

}  // namespace

struct NamedMutex::State {
  int fd = -1;
  std::string path;
  std::recursive_mutex local;  // excludes the threads of this process
  int depth = 0;               // recursion of the owning thread
};

NamedMutex::NamedMutex(std::unique_ptr<State> state) : state_(std::move(state)) {}

std::unique_ptr<NamedMutex> NamedMutex::Open(const std::string& name) {
  auto state = std::make_unique<State>();
  state->path = IpcObjectPath("mutex", name);
  for (int attempt = 0; attempt < 100; ++attempt) {
    const int fd = open(state->path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return nullptr;
    // The presence lock waits out a closer that is removing the file; if
    // the file we hold is no longer the one the name points to, start over.
    if (OfdLock(fd, F_RDLCK, kPresenceByte, true) && StillNamed(fd, state->path)) {
      state->fd = fd;
      return std::unique_ptr<NamedMutex>(new NamedMutex(std::move(state)));
    }
    close(fd);
  }
  return nullptr;
}

bool NamedMutex::Exists(const std::string& name) {
  const int fd = open(IpcObjectPath("mutex", name).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool held = OfdConflicts(fd, F_WRLCK, kPresenceByte);
  close(fd);
  return held;
}

NamedMutex::~NamedMutex() {
  while (state_->depth > 0) Unlock();
  // Whoever can take the presence byte exclusively is the last holder.
  if (OfdLock(state_->fd, F_WRLCK, kPresenceByte, false)) unlink(state_->path.c_str());
  close(state_->fd);
}

DWORD NamedMutex::Lock(DWORD timeoutMs) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs == INFINITE ? 0 : timeoutMs);
  // A timed wait polls with growing pauses (up to 5 ms) rather than using a
  // timed mutex, whose clock-based lock the thread sanitizer cannot follow.
  auto pause = std::chrono::microseconds(50);
  auto waitABit = [&]() {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(pause);
    if (pause < std::chrono::milliseconds(5)) pause *= 2;
    return true;
  };
  if (timeoutMs == INFINITE) {
    state_->local.lock();
  } else {
    while (!state_->local.try_lock())
      if (!waitABit()) return WAIT_TIMEOUT;
  }
  if (state_->depth > 0) {  // the owning thread again
    ++state_->depth;
    return WAIT_OBJECT_0;
  }
  if (timeoutMs == INFINITE) {
    if (!OfdLock(state_->fd, F_WRLCK, kMutexByte, true)) {
      state_->local.unlock();
      return WAIT_FAILED;
    }
  } else {
    while (!OfdLock(state_->fd, F_WRLCK, kMutexByte, false)) {
      if (!waitABit()) {
        state_->local.unlock();
        return WAIT_TIMEOUT;
      }
    }
  }
  state_->depth = 1;
  return WAIT_OBJECT_0;
}

void NamedMutex::Unlock() {
  if (state_->depth == 0) return;
  if (--state_->depth == 0) OfdLock(state_->fd, F_UNLCK, kMutexByte, false);
  state_->local.unlock();
}

}  // namespace dravix::platform
