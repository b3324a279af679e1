// LoadOption + SaveOption of a full option document, against pugixml's own
// load_file + save_file of the same file (the floor any DOM-based document
// can reach). Both run on the program folder's file; the document's save
// also flushes the file to the disk and renames it into place.
#include "dravix/base/zfile.h"
#include "dravix/config/default_names.h"
#include "dravix/config/xmldoc.h"

#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace {

std::string Home() {
  static const std::string home = [] {
    std::string dir = (std::filesystem::temp_directory_path() / "dravix-config-bench").string();
    std::filesystem::create_directories(dir);
    SetModulePath(dir.c_str());
    dravix::config::SetOptionStringSource([](UINT id) { return "Camera " + std::to_string(id - 4502); });
    // A full document: every section written once.
    auto o = std::make_unique<tagDSZEPLODVROPTION>();
    ZXMLMGR mgr;
    mgr.LoadOption(*o);
    mgr.SaveOption(*o, 0);
    return dir + "/";
  }();
  return home;
}

void BM_OptionLoadSave(benchmark::State& state) {
  Home();
  auto o = std::make_unique<tagDSZEPLODVROPTION>();
  ZXMLMGR mgr;
  for (auto _ : state) {
    mgr.LoadOption(*o);
    mgr.SaveOption(*o, 0);
    benchmark::DoNotOptimize(o->dsDVROption.dsCamera[15].nRecordSecond);
  }
}

void BM_PugixmlLoadSave(benchmark::State& state) {
  const std::string file = Home() + dravix::config::kOptionFileName;
  for (auto _ : state) {
    pugi::xml_document doc;
    if (!doc.load_file(file.c_str())) state.SkipWithError("load_file failed");
    if (!doc.save_file(file.c_str())) state.SkipWithError("save_file failed");
  }
}

BENCHMARK(BM_OptionLoadSave)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PugixmlLoadSave)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
