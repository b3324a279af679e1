// ZShareMem: the machine-wide table of recording files that some process
// holds open.
//
// A process that opens a recording file (to write or to play it) calls
// Add(path); when it lets go it calls Delete(path). Any process can ask
// HasToken(path) before it deletes, recycles or moves a file. Registration is
// counted: two holders of one file keep it held until both have let go.
//
// The table lives in the shared region "Live ShareMem" (16 MiB of 24-byte
// records, no header) and updates are serialised by the cross-process
// mutex "Share Data Mutex"; both are shared by every process of the same
// user and IPC namespace ($DRAVIX_IPC_NAMESPACE). The region exists while
// some process holds it: registrations are not tied to the process that
// made them, but once the last holder has gone (also by a crash) the next
// process finds an empty table.
//
// Files are known by their title: the text after the last '\' or '/' of the
// path, cut to its first 16 bytes. A path with no separator has the empty
// title. Lookups compare titles as stored, so two titles that agree in their
// first 16 bytes are the same entry.
//
// Records are never compacted. A freed record keeps its place and its name
// and is reused by a later Add in index order; the list grows only at its
// end. When a freed record carries the same name ahead of the in-use one,
// Add and Delete change the count of the freed record: that order is
// deliberate and kept.
//
// No operation reports failure. When the mutex or the region cannot be made
// (no /dev/shm, no permission) the object does nothing and HasToken gives 0.
// A full table (699,049 names and the end record) ignores further Adds.
#pragma once

#include "dravix/platform/wintypes.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace dravix::platform {
class NamedMutex;
class SharedMemory;
}  // namespace dravix::platform

// One record of the shared table, as a value.
struct tagSHAREFILE {
  char name[16];  // title bytes; no terminating zero when all 16 are used
  int32_t state;  // ZShareMem::kInUse, kFreed or kEndOfList
  int32_t count;  // number of current holders
};
static_assert(sizeof(tagSHAREFILE) == 24);
static_assert(offsetof(tagSHAREFILE, state) == 16);
static_assert(offsetof(tagSHAREFILE, count) == 20);

class ZShareMem {
 public:
  static constexpr const char* kRegionName = "Live ShareMem";
  static constexpr const char* kMutexName = "Share Data Mutex";
  static constexpr size_t kRegionSize = 0x1000000;
  static constexpr __int64 kRecords = kRegionSize / sizeof(tagSHAREFILE);  // 699,050
  static constexpr int32_t kInUse = 0;
  static constexpr int32_t kEndOfList = -1;
  static constexpr int32_t kFreed = -2;

  // The process-wide object, created (and the region opened) on first call.
  static ZShareMem* Instance();

  // A copy shares the mutex and the region with the original; both stay
  // open until the last copy is gone.
  ZShareMem(const ZShareMem& other);
  ZShareMem& operator=(const ZShareMem& other);
  virtual ~ZShareMem();

  // Registers one holder of the file (waits for the mutex without limit).
  void Add(const char* path);
  // Removes one holder; the record is freed when its count was 1. A title
  // that is not in use changes nothing.
  void Delete(const char* path);
  // 1 when the file's title has an in-use record, else 0. Reads without
  // the mutex.
  int HasToken(const char* path);
  // Writes every in-use record to the general log (ILog) as three lines:
  // "Share memory : File name: %s\n", "... nstate: %d\n", "... nCount: %d\n".
  // Reads without the mutex.
  void WriteSM();

  // Calls `visit` with the index and a copy of every record before the end
  // of the list, freed ones included, in index order. Reads without the
  // mutex. Nothing happens when the region is not open.
  void ForEachRecord(const std::function<void(__int64 index, const tagSHAREFILE& record)>& visit) const;
  // The title a path is registered under: what follows its last '\' or
  // '/', cut to 16 bytes; empty when it has neither.
  static std::string TitleOf(const char* path);
  // 1 when both the mutex and the region are open.
  int IsOpen() const { return m_view != nullptr && m_mutex != nullptr; }

 private:
  ZShareMem();

  // Index of the first record whose state is kEndOfList or kFreed; 0 when
  // record 0 ends the list; -1 when the region is full.
  __int64 Search();
  // Index of the first record named `title`, whatever its state, or -1.
  __int64 CheckFileIndex(char* title);
  // 1 when a record named `title` is in use.
  int IsExist(char* title);

  tagSHAREFILE m_empty;  // the end-of-list template
  std::shared_ptr<dravix::platform::NamedMutex> m_mutex;
  std::shared_ptr<dravix::platform::SharedMemory> m_map;
  void* m_view = nullptr;

  static std::unique_ptr<ZShareMem> sm_inst;
};
