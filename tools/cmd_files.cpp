// `dravix files`: the shared table of recording files held open by the
// recorder's processes (the live-file registry), and registering a file by
// hand.
//
//   dravix files                      the table (in-use records; --all: freed too)
//   dravix files add PATH [--hold S]  register one holder of PATH; with --hold,
//                                     stay S seconds holding it, then let go
//   dravix files delete PATH          remove one holder
//   dravix files has PATH             print 1 and exit 0 when PATH is held,
//                                     else print 0 and exit 1
//
// The table lives while some process has it open: a registration made by a
// `dravix files add` without --hold survives only if another process holds
// the table (e.g. a recorder, or another `add --hold`).
#include "tools/command.h"
#include "tools/table.h"

#include "dravix/live/liveshare.h"
#include "dravix/platform/ipc_name.h"
#include "dravix/platform/named_mutex.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstring>
#include <iostream>
#include <thread>

namespace dravix::cli {
namespace {

struct FilesOptions {
  std::string action;
  std::string path;
  double hold = -1;
  bool all = false;
};

FilesOptions& Options() {
  static FilesOptions o;
  return o;
}

const char* StateText(int32_t state) {
  switch (state) {
    case ZShareMem::kInUse:
      return "in use";
    case ZShareMem::kFreed:
      return "freed";
    default:
      return "?";
  }
}

ZShareMem* Open() {
  ZShareMem* sm = ZShareMem::Instance();
  if (!sm->IsOpen())
    throw Failure("cannot open the shared region \"" + std::string(ZShareMem::kRegionName) + "\" (" +
                  platform::IpcObjectPath("shm", ZShareMem::kRegionName) + ")");
  return sm;
}

std::string Title(const std::string& path) { return ZShareMem::TitleOf(path.c_str()); }

int Count(ZShareMem* sm, const std::string& path) {
  int count = 0;
  const std::string title = Title(path);
  sm->ForEachRecord([&](__int64, const tagSHAREFILE& r) {
    if (count == 0 && r.state == ZShareMem::kInUse && std::string(r.name, strnlen(r.name, sizeof r.name)) == title)
      count = r.count;
  });
  return count;
}

int List() {
  ZShareMem* sm = Open();
  nlohmann::json out = nlohmann::json::array();
  Table table({"index", "name", "state", "count"});
  sm->ForEachRecord([&](__int64 index, const tagSHAREFILE& r) {
    if (r.state == ZShareMem::kFreed && !Options().all) return;
    const std::string name(r.name, strnlen(r.name, sizeof r.name));
    if (Globals().json)
      out.push_back({{"index", index}, {"name", name}, {"state", r.state}, {"count", r.count}});
    else
      table.Add(
          {std::to_string(index), name.empty() ? "(empty title)" : name, StateText(r.state), std::to_string(r.count)});
  });
  if (Globals().json) {
    std::cout << out.dump(2) << "\n";
  } else if (table.empty()) {
    std::cout << "no files registered (namespace " << platform::IpcNamespace() << ")\n";
  } else {
    table.Print(std::cout);
  }
  return kExitOk;
}

int Files() {
  const FilesOptions& o = Options();
  if (o.action.empty()) {
    if (o.hold >= 0) throw UsageError("--hold belongs to `dravix files add`");
    return List();
  }
  if (o.action != "add" && o.action != "delete" && o.action != "has")
    throw UsageError("\"" + o.action + "\" is not one of add, delete, has");
  if (o.path.empty()) throw UsageError("`dravix files " + o.action + "` needs a PATH");
  if (o.hold >= 0 && o.action != "add") throw UsageError("--hold belongs to `dravix files add`");
  if (Title(o.path).empty())
    std::cerr << "dravix: note: \"" << o.path << "\" has no '\\' or '/', so its title is empty\n";
  ZShareMem* sm = Open();
  const bool json = Globals().json;
  if (o.action == "has") {
    // A predicate: the answer on standard output and in the exit status.
    const bool held = sm->HasToken(o.path.c_str()) != 0;
    if (json)
      std::cout << nlohmann::json{{"path", o.path}, {"title", Title(o.path)}, {"held", held}}.dump(2) << "\n";
    else
      std::cout << (held ? 1 : 0) << "\n";
    return held ? kExitOk : kExitFailure;
  }
  auto report = [&](const char* what) {
    if (json)
      std::cout << nlohmann::json{{"action", what}, {"title", Title(o.path)}, {"holders", Count(sm, o.path)}}.dump(2)
                << std::endl;
    else
      std::cout << what << " \"" << Title(o.path) << "\" (holders now " << Count(sm, o.path) << ")" << std::endl;
  };
  if (o.action == "delete") {
    sm->Delete(o.path.c_str());
    report("released");
    return kExitOk;
  }
  sm->Add(o.path.c_str());
  report("registered");
  if (o.hold >= 0) {
    std::this_thread::sleep_for(std::chrono::duration<double>(o.hold));
    sm->Delete(o.path.c_str());
    if (!json) std::cout << "released \"" << Title(o.path) << "\" after " << o.hold << " s" << std::endl;
  }
  return kExitOk;
}

void Register(CLI::App& app) {
  FilesOptions& o = Options();
  CLI::App* cmd = AddCommand(&app, "files",
                             "The shared table of recording files held open (namespace $DRAVIX_IPC_NAMESPACE); "
                             "`files add|delete|has PATH` register, release or ask about one file "
                             "(`has` exits 0 when the file is held, 1 when not)",
                             Files);
  cmd->add_option("ACTION", o.action, "Add, delete or has; none: list the table");
  cmd->add_option("PATH", o.path, "The file's path; its title (after the last '\\' or '/') is what is registered");
  cmd->add_option("--hold", o.hold, "With add: keep holding the file for SECONDS, then release it")
      ->type_name("SECONDS")
      ->check(CLI::NonNegativeNumber);
  cmd->add_flag("--all", o.all, "List freed records too");
  AddJsonFlag(cmd);
  cmd->footer(
      "`files has PATH` is a predicate: it prints 1 and exits 0 when the file is held, prints 0 and exits 1\n"
      "when it is not; when it cannot ask, it prints nothing, says why on standard error and exits 1.");
}

const Registration reg{70, Register};

}  // namespace
}  // namespace dravix::cli
