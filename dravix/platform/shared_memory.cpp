// Shared memory regions with holder-counted lifetimes.
//
// Two open-file-description locks on the object carry the bookkeeping (they
// are advisory, so locking bytes 0 and 1 does not get in the way of the
// data mapped over them):
//   byte 0, presence: every handle holds it shared for as long as it is open;
//   byte 1, gate:     held exclusively while a handle opens or closes.
// Under the gate, a handle that can take the presence byte exclusively knows
// that no other live handle exists: an opener then starts the region afresh
// (truncating it to zero and back, which also drops whatever a crashed set of
// holders left behind), and a closer removes the name. Because opening and
// closing both run under the gate, no opener can slip in between a closer's
// "I am the last" and its unlink; an opener that waited on the gate of an
// object that was unlinked meanwhile notices (the name no longer leads to the
// inode it holds) and starts over with the new one.
#include "dravix/platform/shared_memory.h"

#include "dravix/platform/ipc_name.h"
#include "dravix/platform/named_mutex.h"
#include "dravix/platform/ofd_lock.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace dravix::platform {
namespace {

constexpr off_t kPresenceByte = 0;
constexpr off_t kGateByte = 1;

// The shm_open name ("/dravix.<namespace>.shm.<name>") and the file it is.
std::string ObjectPath(const std::string& name) { return IpcObjectPath("shm", name); }
std::string ShmName(const std::string& path) { return path.substr(path.rfind('/')); }

}  // namespace

SharedMemory::SharedMemory(int fd, void* data, size_t size, std::string path)
    : fd_(fd), data_(data), size_(size), path_(std::move(path)) {}

std::unique_ptr<SharedMemory> SharedMemory::Open(const std::string& name, size_t size, bool* fresh,
                                                 const std::function<void(void*)>& initialise) {
  if (fresh != nullptr) *fresh = false;
  if (size == 0) return nullptr;
  const std::string path = ObjectPath(name);
  const std::string shmName = ShmName(path);
  for (int attempt = 0; attempt < 100; ++attempt) {
    const int fd = shm_open(shmName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return nullptr;
    if (!OfdLock(fd, F_WRLCK, kGateByte, true)) {
      close(fd);
      return nullptr;
    }
    if (!StillNamed(fd, path)) {  // a closer removed it while we waited
      close(fd);
      continue;
    }
    bool alone = false;
    if (OfdLock(fd, F_WRLCK, kPresenceByte, false)) {
      alone = true;
      // Whatever is in there belongs to holders that are gone.
      if (ftruncate(fd, 0) != 0 || ftruncate(fd, static_cast<off_t>(size)) != 0 ||
          !OfdLock(fd, F_RDLCK, kPresenceByte, false)) {  // downgrade in place
        shm_unlink(shmName.c_str());
        close(fd);
        return nullptr;
      }
    } else {
      struct stat st;
      if (!OfdLock(fd, F_RDLCK, kPresenceByte, false) || fstat(fd, &st) != 0 ||
          st.st_size != static_cast<off_t>(size)) {
        close(fd);  // drops every lock of this description
        return nullptr;
      }
    }
    void* data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (data == MAP_FAILED) {
      if (alone) shm_unlink(shmName.c_str());
      close(fd);
      return nullptr;
    }
    if (alone && initialise) initialise(data);  // still under the gate: nobody else sees it yet
    OfdLock(fd, F_UNLCK, kGateByte, false);
    if (fresh != nullptr) *fresh = alone;
    return std::unique_ptr<SharedMemory>(new SharedMemory(fd, data, size, path));
  }
  return nullptr;
}

bool SharedMemory::Exists(const std::string& name) {
  const int fd = open(ObjectPath(name).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool held = OfdConflicts(fd, F_WRLCK, kPresenceByte);
  close(fd);
  return held;
}

SharedMemory::~SharedMemory() {
  munmap(data_, size_);
  if (OfdLock(fd_, F_WRLCK, kGateByte, true) && OfdLock(fd_, F_WRLCK, kPresenceByte, false) && StillNamed(fd_, path_))
    shm_unlink(ShmName(path_).c_str());
  close(fd_);
}

}  // namespace dravix::platform
