// `dravix disk`: the program folder and the free space of its disk.
#include "tools/command.h"
#include "tools/table.h"

#include "dravix/base/zfile.h"

#include <nlohmann/json.hpp>

#include <iostream>

namespace dravix::cli {
namespace {

int Disk() {
  const std::string folder = GetModulePath();
  tagDiskSpace space{};
  if (GetDiskSpace(folder.c_str(), space) == 0) throw Failure("cannot read the disk space of " + folder);
  if (Globals().json) {
    std::cout << nlohmann::json{{"home", folder},
                                {"free_to_caller", space.freeBytesAvailable},
                                {"total", space.totalBytes},
                                {"free", space.totalFreeBytes}}
                     .dump(2)
              << '\n';
    return kExitOk;
  }
  // Bytes, as in the JSON, with the size in MiB for the eye.
  auto bytes = [](uint64_t b) { return std::to_string(b) + " bytes (" + std::to_string(b / (1024 * 1024)) + " MiB)"; };
  PrintPairs(std::cout, {{"home (program folder)", folder},
                         {"free to caller", bytes(space.freeBytesAvailable)},
                         {"total (disk size)", bytes(space.totalBytes)},
                         {"free", bytes(space.totalFreeBytes)}});
  return kExitOk;
}

void Register(CLI::App& app) {
  AddJsonFlag(AddCommand(&app, "disk", "The program folder and the free space of its disk", Disk));
}

const Registration reg{10, Register};

}  // namespace
}  // namespace dravix::cli
