// The shared live-file table.
//
// Updates (Add, Delete) run under the cross-process mutex; a fresh region is
// laid out while the region itself is still closed to other openers. HasToken, WriteSM and ForEachRecord walk the table
// without it while another process may be updating, so every field of a
// record is read and written through atomic accesses of its own width (the
// name as two 8-byte words), and an update publishes a record in an order
// that keeps such a walk inside the list:
//   - a new record at the end first writes the new end-of-list record behind
//     it, then the name and the count, and the state last;
//   - a freed record is marked by its state after its count is cleared.
// A walker that sees a record in use therefore also sees its name, and never
// runs past an end-of-list record into the untouched (zero) part of the
// region. Every walk is also bounded by the region's size.
#include "dravix/live/liveshare.h"

#include "dravix/base/single_instance.h"
#include "dravix/log/ilog.h"
#include "dravix/platform/named_mutex.h"
#include "dravix/platform/shared_memory.h"

#include <atomic>
#include <cstring>
#include <string>
#include <string_view>

std::unique_ptr<ZShareMem> ZShareMem::sm_inst;

namespace {

// The mapped form of a record: the same 24 bytes, typed for atomic access.
struct Slot {
  uint64_t name[2];
  int32_t state;
  int32_t count;
};
static_assert(sizeof(Slot) == sizeof(tagSHAREFILE));

constexpr size_t kTitleSize = sizeof(tagSHAREFILE::name);

Slot* Slots(void* view) { return static_cast<Slot*>(view); }

int32_t LoadState(const Slot& s) {
  return std::atomic_ref<int32_t>(const_cast<int32_t&>(s.state)).load(std::memory_order_acquire);
}
int32_t LoadCount(const Slot& s) {
  return std::atomic_ref<int32_t>(const_cast<int32_t&>(s.count)).load(std::memory_order_relaxed);
}
void StoreState(Slot& s, int32_t v) { std::atomic_ref<int32_t>(s.state).store(v, std::memory_order_release); }
void StoreCount(Slot& s, int32_t v) { std::atomic_ref<int32_t>(s.count).store(v, std::memory_order_relaxed); }

void LoadName(const Slot& s, char out[kTitleSize]) {
  const uint64_t w[2] = {std::atomic_ref<uint64_t>(const_cast<uint64_t&>(s.name[0])).load(std::memory_order_relaxed),
                         std::atomic_ref<uint64_t>(const_cast<uint64_t&>(s.name[1])).load(std::memory_order_relaxed)};
  std::memcpy(out, w, kTitleSize);
}
void StoreName(Slot& s, const char in[kTitleSize]) {
  uint64_t w[2];
  std::memcpy(w, in, kTitleSize);
  std::atomic_ref<uint64_t>(s.name[0]).store(w[0], std::memory_order_relaxed);
  std::atomic_ref<uint64_t>(s.name[1]).store(w[1], std::memory_order_relaxed);
}

// The stored name as a string: up to the first zero, at most 16 bytes.
// QUIRK(title-16-bytes): titles that agree in their first 16 bytes are one entry.
bool NameIs(const Slot& s, const char* title) {
  char name[kTitleSize];
  LoadName(s, name);
  const size_t n = strnlen(title, kTitleSize);
  return strnlen(name, kTitleSize) == n && std::memcmp(name, title, n) == 0;
}

// Writes a whole record in the order walkers rely on: the name and the
// count first, the state last.
void Publish(Slot& s, const char name[kTitleSize], int32_t count, int32_t state) {
  StoreName(s, name);
  StoreCount(s, count);
  StoreState(s, state);
}

tagSHAREFILE Copy(const Slot& s) {
  tagSHAREFILE r;
  LoadName(s, r.name);
  r.state = LoadState(s);
  r.count = LoadCount(s);
  return r;
}

// The title of a path zero-padded into `out`, which holds 17 bytes.
void PaddedTitle(const char* path, char out[kTitleSize + 1]) {
  std::memset(out, 0, kTitleSize + 1);
  const std::string title = ZShareMem::TitleOf(path);
  std::memcpy(out, title.data(), title.size());
}

// Holds the cross-process mutex for a scope.
class MutexHold {
 public:
  explicit MutexHold(dravix::platform::NamedMutex& m) : m_(m), held_(m.Lock(INFINITE) == WAIT_OBJECT_0) {}
  ~MutexHold() {
    if (held_) m_.Unlock();
  }
  MutexHold(const MutexHold&) = delete;
  MutexHold& operator=(const MutexHold&) = delete;
  bool held() const { return held_; }

 private:
  dravix::platform::NamedMutex& m_;
  bool held_;
};

}  // namespace

std::string ZShareMem::TitleOf(const char* path) {
  if (path == nullptr) return {};
  const std::string_view p(path);
  const size_t sep = p.find_last_of("\\/");
  if (sep == std::string_view::npos) return {};
  return std::string(p.substr(sep + 1, kTitleSize));
}

ZShareMem* ZShareMem::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new ZShareMem; });
}

ZShareMem::ZShareMem() : m_empty{{}, kEndOfList, 0} {
  // Neither opening the mutex nor opening the region waits for the lock's
  // holder: a region that already exists is ready, and a fresh one gets its
  // end-of-list record before any other process can open it.
  std::shared_ptr<dravix::platform::NamedMutex> mutex = dravix::platform::NamedMutex::Open(kMutexName);
  if (mutex == nullptr) return;
  const tagSHAREFILE end = m_empty;
  std::shared_ptr<dravix::platform::SharedMemory> map = dravix::platform::SharedMemory::Open(
      kRegionName, kRegionSize, nullptr,
      [&end](void* view) { Publish(Slots(view)[0], end.name, end.count, end.state); });
  if (map == nullptr) return;
  m_view = map->data();
  m_map = std::move(map);
  m_mutex = std::move(mutex);
}

ZShareMem::ZShareMem(const ZShareMem& other) = default;
ZShareMem& ZShareMem::operator=(const ZShareMem& other) = default;
ZShareMem::~ZShareMem() = default;

__int64 ZShareMem::Search() {
  const Slot* s = Slots(m_view);
  if (LoadState(s[0]) == kEndOfList) return 0;
  for (__int64 i = 0; i < kRecords; ++i) {
    const int32_t state = LoadState(s[i]);
    if (state == kEndOfList || state == kFreed) return i;
  }
  return -1;
}

__int64 ZShareMem::CheckFileIndex(char* title) {
  const Slot* s = Slots(m_view);
  if (LoadState(s[0]) == kEndOfList) return -1;
  for (__int64 i = 0; i < kRecords; ++i) {
    if (NameIs(s[i], title)) return i;  // QUIRK(first-name-wins): whatever its state
    if (i + 1 >= kRecords || LoadState(s[i + 1]) == kEndOfList) break;
  }
  return -1;
}

int ZShareMem::IsExist(char* title) {
  const Slot* s = Slots(m_view);
  if (LoadState(s[0]) == kEndOfList) return 0;
  for (__int64 i = 0; i < kRecords; ++i) {
    if (NameIs(s[i], title) && LoadState(s[i]) != kFreed) return 1;
    if (i + 1 >= kRecords || LoadState(s[i + 1]) == kEndOfList) break;
  }
  return 0;
}

void ZShareMem::Add(const char* path) {
  if (!IsOpen()) return;
  char title[kTitleSize + 1];
  PaddedTitle(path, title);
  MutexHold hold(*m_mutex);
  if (!hold.held()) return;
  Slot* s = Slots(m_view);
  if (IsExist(title)) {
    const __int64 k = CheckFileIndex(title);
    if (k >= 0) StoreCount(s[k], LoadCount(s[k]) + 1);
    return;
  }
  const __int64 k = Search();
  if (k < 0) return;
  const bool consumedEnd = LoadState(s[k]) == kEndOfList;
  if (consumedEnd) {
    if (k + 1 >= kRecords) return;  // no room for the end record behind it
    Publish(s[k + 1], m_empty.name, m_empty.count, m_empty.state);
  }
  Publish(s[k], title, 1, kInUse);
}

void ZShareMem::Delete(const char* path) {
  if (!IsOpen()) return;
  char title[kTitleSize + 1];
  PaddedTitle(path, title);
  MutexHold hold(*m_mutex);
  if (!hold.held() || !IsExist(title)) return;
  const __int64 k = CheckFileIndex(title);
  if (k < 0) return;
  Slot& r = Slots(m_view)[k];
  const int32_t count = LoadCount(r);
  if (count == 1) {
    StoreCount(r, 0);
    StoreState(r, kFreed);
  } else {
    StoreCount(r, count - 1);
  }
}

int ZShareMem::HasToken(const char* path) {
  if (!IsOpen()) return 0;
  char title[kTitleSize + 1];
  PaddedTitle(path, title);
  return IsExist(title);
}

void ZShareMem::ForEachRecord(const std::function<void(__int64, const tagSHAREFILE&)>& visit) const {
  if (m_view == nullptr) return;
  const Slot* s = Slots(m_view);
  for (__int64 i = 0; i < kRecords; ++i) {
    const tagSHAREFILE r = Copy(s[i]);
    if (r.state == kEndOfList) return;
    visit(i, r);
  }
}

void ZShareMem::WriteSM() {
  ILog* log = ILog::Instance();
  ForEachRecord([log](__int64, const tagSHAREFILE& r) {
    if (r.state == kFreed) return;
    const std::string name(r.name, strnlen(r.name, kTitleSize));
    log->WriteV("Share memory : File name: %s\n", name.c_str());
    log->WriteV("Share memory : nstate: %d\n", r.state);
    log->WriteV("Share memory : nCount: %d\n", r.count);
  });
}
