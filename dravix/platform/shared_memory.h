// Named shared memory regions that exist exactly while a live process holds
// them open.
//
// A region is a POSIX shared memory object (/dev/shm, mode 0600, named in
// the namespace of $DRAVIX_IPC_NAMESPACE, see IpcObjectPath) mapped whole
// for reading and writing. Every open handle holds a shared "presence" lock
// on the object; the kernel drops it when the holder exits or is killed. An
// opener that finds no other holder starts the region fresh (all zeros),
// even when the previous holders crashed and left the object behind; the
// last handle to close removes the object. Opening and closing are
// serialised by a second lock, so "alone" is never misjudged while another
// process is half-way through opening or closing.
//
// The region is sparse: pages nobody has touched take no memory.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace dravix::platform {

class SharedMemory {
 public:
  // Opens the region `name` of `size` bytes, creating it when no live
  // process holds it. *fresh (when not null) tells whether the caller is the
  // one that started it, in which case it reads as zeros. nullptr when the
  // object cannot be made or mapped, or a live holder has it with a
  // different size. `initialise`, when given, lays out a fresh region
  // before any other process can open it.
  static std::unique_ptr<SharedMemory> Open(const std::string& name, size_t size, bool* fresh = nullptr,
                                            const std::function<void(void*)>& initialise = {});
  // true while some live process (this one included) holds `name` open.
  static bool Exists(const std::string& name);

  ~SharedMemory();
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  void* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  SharedMemory(int fd, void* data, size_t size, std::string path);
  int fd_;
  void* data_;
  size_t size_;
  std::string path_;
};

}  // namespace dravix::platform
