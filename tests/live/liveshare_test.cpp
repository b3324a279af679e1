#include "dravix/live/liveshare.h"

#include "dravix/log/ilog.h"
#include "dravix/platform/ipc_name.h"
#include "dravix/platform/named_mutex.h"
#include "dravix/platform/shared_memory.h"
#include "tests/live/peer_process.h"
#include "tests/support/test_home.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

using dravix::platform::SharedMemory;
using dravix::test::Peer;

struct Row {
  std::string name;
  int32_t state;
  int32_t count;
  bool operator==(const Row&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Row& r) {
  return out << "{\"" << r.name << "\", " << r.state << ", " << r.count << "}";
}

class Registry : public dravix::test::TestHome {
 protected:
  static std::vector<Row> Rows() {
    std::vector<Row> rows;
    ZShareMem::Instance()->ForEachRecord([&rows](__int64 index, const tagSHAREFILE& r) {
      EXPECT_EQ(index, static_cast<__int64>(rows.size()));
      rows.push_back({std::string(r.name, strnlen(r.name, sizeof r.name)), r.state, r.count});
    });
    return rows;
  }
  // A second mapping of this process's region, to lay out records by hand.
  static tagSHAREFILE* Raw(std::unique_ptr<SharedMemory>& map) {
    map = SharedMemory::Open(ZShareMem::kRegionName, ZShareMem::kRegionSize);
    return map ? static_cast<tagSHAREFILE*>(map->data()) : nullptr;
  }
  static tagSHAREFILE Record(const char* name, int32_t state, int32_t count) {
    tagSHAREFILE r{};
    std::strncpy(r.name, name, sizeof r.name);
    r.state = state;
    r.count = count;
    return r;
  }
};

constexpr int32_t kUse = ZShareMem::kInUse;
constexpr int32_t kFree = ZShareMem::kFreed;

TEST_F(Registry, CountsHoldersAndFreesTheSlotAtTheLastDelete) {
  ZShareMem* sm = ZShareMem::Instance();
  ASSERT_TRUE(sm->IsOpen());
  EXPECT_TRUE(Rows().empty());
  EXPECT_EQ(sm->HasToken("D:\\rec\\a.zmf"), 0);

  sm->Add("D:\\rec\\a.zmf");
  sm->Add("D:\\rec\\a.zmf");
  sm->Delete("D:\\rec\\a.zmf");
  EXPECT_EQ(sm->HasToken("D:\\rec\\a.zmf"), 1);
  EXPECT_EQ(Rows(), (std::vector<Row>{{"a.zmf", kUse, 1}}));

  sm->Delete("D:\\rec\\a.zmf");
  EXPECT_EQ(sm->HasToken("D:\\rec\\a.zmf"), 0);
  EXPECT_EQ(Rows(), (std::vector<Row>{{"a.zmf", kFree, 0}}));  // keeps its place and name

  sm->Delete("D:\\rec\\a.zmf");      // freed: not in use, nothing changes
  sm->Delete("D:\\rec\\never.zmf");  // never added
  EXPECT_EQ(Rows(), (std::vector<Row>{{"a.zmf", kFree, 0}}));
}

TEST_F(Registry, FreedSlotsAreReusedInOrderAndTheEndOnlyGrows) {
  ZShareMem* sm = ZShareMem::Instance();
  sm->Add("\\r\\a.zmf");
  sm->Add("\\r\\b.zmf");
  sm->Add("\\r\\c.zmf");
  sm->Delete("\\r\\c.zmf");
  sm->Delete("\\r\\a.zmf");
  sm->Add("\\r\\d.zmf");  // takes index 0, the first free one
  EXPECT_EQ(Rows(), (std::vector<Row>{{"d.zmf", kUse, 1}, {"b.zmf", kUse, 1}, {"c.zmf", kFree, 0}}));
  sm->Add("\\r\\e.zmf");  // index 2; the end stays at 3
  sm->Add("\\r\\f.zmf");  // consumes the end
  EXPECT_EQ(Rows(), (std::vector<Row>{{"d.zmf", kUse, 1}, {"b.zmf", kUse, 1}, {"e.zmf", kUse, 1}, {"f.zmf", kUse, 1}}));
}

// QUIRK(title-16-bytes)
TEST_F(Registry, TitlesAreTheLastPathStepCutTo16Bytes) {
  ZShareMem* sm = ZShareMem::Instance();
  sm->Add("D:\\rec\\CAM01-20080315-1200.zmf");
  EXPECT_EQ(sm->HasToken("/other/CAM01-20080315-1800.zmf"), 1);  // same first 16 bytes, either separator
  EXPECT_EQ(sm->HasToken("/other/CAM01-2008031"), 0);            // 15 bytes
  sm->Add("E:/x/CAM01-20080315-1800.zmf");
  EXPECT_EQ(Rows(), (std::vector<Row>{{"CAM01-20080315-1", kUse, 2}}));

  // A path without any separator has the empty title; so has a trailing one.
  sm->Add("plain.zmf");
  EXPECT_EQ(Rows().back(), (Row{"", kUse, 1}));
  EXPECT_EQ(sm->HasToken("other.zmf"), 1);
  EXPECT_EQ(sm->HasToken("D:\\rec\\"), 1);
  EXPECT_EQ(sm->HasToken("D:\\rec\\plain.zmf"), 0);
  sm->Delete("nothing-here");
  EXPECT_EQ(sm->HasToken(""), 0);
  sm->Add(nullptr);  // no path at all: the empty title too
  EXPECT_EQ(sm->HasToken(nullptr), 1);

  // The stored 16 bytes carry no terminating zero.
  std::unique_ptr<SharedMemory> map;
  const tagSHAREFILE* raw = Raw(map);
  ASSERT_NE(raw, nullptr);
  EXPECT_EQ(std::memcmp(raw[0].name, "CAM01-20080315-1", 16), 0);
  EXPECT_EQ(raw[2].state, ZShareMem::kEndOfList);
}

TEST_F(Registry, FreedRecordWithTheSameNameAheadTakesTheCounts) {
  ZShareMem* sm = ZShareMem::Instance();
  std::unique_ptr<SharedMemory> map;
  tagSHAREFILE* raw = Raw(map);
  ASSERT_NE(raw, nullptr);
  raw[0] = Record("dup.zmf", kFree, 0);
  raw[1] = Record("dup.zmf", kUse, 1);
  raw[2] = Record("x.zmf", kFree, 0);
  raw[3] = Record("", ZShareMem::kEndOfList, 0);

  EXPECT_EQ(sm->HasToken("\\dup.zmf"), 1);  // the in-use one counts for the question
  // QUIRK(first-name-wins): the freed one ahead takes the count.
  sm->Add("\\dup.zmf");
  EXPECT_EQ(Rows(), (std::vector<Row>{{"dup.zmf", kFree, 1}, {"dup.zmf", kUse, 1}, {"x.zmf", kFree, 0}}));
  sm->Delete("\\dup.zmf");
  sm->Delete("\\dup.zmf");
  EXPECT_EQ(Rows(), (std::vector<Row>{{"dup.zmf", kFree, -1}, {"dup.zmf", kUse, 1}, {"x.zmf", kFree, 0}}));
  EXPECT_EQ(sm->HasToken("\\dup.zmf"), 1);

  sm->Add("\\new.zmf");  // first free slot is index 0
  EXPECT_EQ(Rows()[0], (Row{"new.zmf", kUse, 1}));
  sm->Add("\\new2.zmf");  // then index 2; the end stays at 3
  EXPECT_EQ(Rows().size(), 3u);
  EXPECT_EQ(Rows()[2], (Row{"new2.zmf", kUse, 1}));
}

TEST_F(Registry, WriteSMLogsEachRecordInUse) {
  ASSERT_TRUE(ILog::Instance()->SetFilename("General.log"));
  ZShareMem* sm = ZShareMem::Instance();
  sm->WriteSM();  // empty table: nothing
  sm->Add("\\r\\a.zmf");
  sm->Add("\\r\\b-long-name-of-20.zmf");
  sm->Add("\\r\\b-long-name-of-20.zmf");
  sm->Add("\\r\\c.zmf");
  sm->Delete("\\r\\a.zmf");
  sm->WriteSM();
  EXPECT_EQ(ReadFile(Path("General.log")),
            "Share memory : File name: b-long-name-of-2\n"
            "Share memory : nstate: 0\n"
            "Share memory : nCount: 2\n"
            "Share memory : File name: c.zmf\n"
            "Share memory : nstate: 0\n"
            "Share memory : nCount: 1\n");
}

TEST_F(Registry, TwoProcessesAddingAtOnceKeepEveryCount) {
  ZShareMem::Instance();  // this process holds the region throughout
  constexpr int kNames = 1500;
  Peer a({"open", "ready", "wait", "addn:" + std::to_string(kNames) + ":\\a\\f"});
  Peer b({"open", "ready", "wait", "addn:" + std::to_string(kNames) + ":/b/f"});
  ASSERT_EQ(a.ReadLine(), "ready");
  ASSERT_EQ(b.ReadLine(), "ready");
  a.CloseInput();  // both start adding now
  b.CloseInput();
  ASSERT_EQ(a.Wait(), 0);
  ASSERT_EQ(b.Wait(), 0);

  // Registrations outlive the processes that made them while the region lives.
  std::map<std::string, int> counts;
  for (const Row& r : Rows()) {
    EXPECT_EQ(r.state, kUse) << r;
    EXPECT_TRUE(counts.emplace(r.name, r.count).second) << "duplicate record " << r;
  }
  ASSERT_EQ(counts.size(), static_cast<size_t>(kNames + 1));
  EXPECT_EQ(counts["fshared"], 2 * kNames);
  for (int k = 0; k < kNames; ++k) EXPECT_EQ(counts["f" + std::to_string(k)], 2) << k;

  Peer reader({"has:\\x\\f7", "del:\\x\\f7", "del:\\x\\f7", "has:\\x\\f7", "has:\\x\\fshared"});
  EXPECT_EQ(reader.ReadLine(), "1");
  EXPECT_EQ(reader.ReadLine(), "0");
  EXPECT_EQ(reader.ReadLine(), "1");
  EXPECT_EQ(reader.Wait(), 0);
  EXPECT_EQ(ZShareMem::Instance()->HasToken("\\f7"), 0);
}

TEST_F(Registry, RegionIsFreshOnceItsLastHolderHasExited) {
  const std::string object = dravix::platform::IpcObjectPath("shm", ZShareMem::kRegionName);
  {
    Peer holder({"add:\\r\\x.zmf", "ready", "wait"});
    ASSERT_EQ(holder.ReadLine(), "ready");
    EXPECT_TRUE(SharedMemory::Exists(ZShareMem::kRegionName));
    Peer reader({"has:\\r\\x.zmf"});
    EXPECT_EQ(reader.ReadLine(), "1");
    EXPECT_EQ(reader.Wait(), 0);
    holder.CloseInput();
    ASSERT_EQ(holder.Wait(), 0);
  }
  EXPECT_FALSE(SharedMemory::Exists(ZShareMem::kRegionName));
  EXPECT_NE(access(object.c_str(), F_OK), 0) << "the last holder removes the object";
  Peer later({"has:\\r\\x.zmf"});
  EXPECT_EQ(later.ReadLine(), "0");
  EXPECT_EQ(later.Wait(), 0);
}

TEST_F(Registry, RegionIsFreshAfterItsOnlyHolderCrashed) {
  const std::string object = dravix::platform::IpcObjectPath("shm", ZShareMem::kRegionName);
  Peer crasher({"add:\\r\\x.zmf", "crash"});
  ASSERT_EQ(crasher.Wait(), 128 + SIGKILL);
  ASSERT_EQ(access(object.c_str(), F_OK), 0) << "a killed holder leaves the object behind";
  EXPECT_FALSE(SharedMemory::Exists(ZShareMem::kRegionName));

  Peer next({"has:\\r\\x.zmf", "add:\\r\\y.zmf", "has:\\r\\y.zmf"});
  EXPECT_EQ(next.ReadLine(), "0");
  EXPECT_EQ(next.ReadLine(), "1");
  EXPECT_EQ(next.Wait(), 0);
  EXPECT_NE(access(object.c_str(), F_OK), 0);
}

TEST_F(Registry, ProcessKilledWhileHoldingTheLockDoesNotBlockOthers) {
  Peer locker({"lock", "ready", "wait"});
  ASSERT_EQ(locker.ReadLine(), "ready");
  Peer adder({"add:\\r\\k.zmf", "has:\\r\\k.zmf"});
  EXPECT_EQ(adder.Wait(300), -1) << "Add must wait while another process holds the lock";
  locker.Kill(SIGKILL);
  EXPECT_EQ(locker.Wait(), 128 + SIGKILL);
  EXPECT_EQ(adder.ReadLine(), "1");
  EXPECT_EQ(adder.Wait(), 0);
}

// A process that stops while holding the lock must not freeze every program
// that starts: opening the existing table and reading it need no lock.
TEST_F(Registry, OpeningAndReadingDoNotWaitForTheLockHolder) {
  Peer locker({"add:\\r\\h.zmf", "lock", "ready", "wait"});
  ASSERT_EQ(locker.ReadLine(), "ready");
  Peer reader({"has:\\r\\h.zmf", "has:\\r\\z.zmf"});
  EXPECT_EQ(reader.ReadLine(5000), "1");
  EXPECT_EQ(reader.ReadLine(5000), "0");
  EXPECT_EQ(reader.Wait(5000), 0);
}

}  // namespace
