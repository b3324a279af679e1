// `dravix switches`: every feature switch with its value and where the
// value came from (the INI file, or the default and why).
#include "tools/command.h"
#include "tools/table.h"

#include "dravix/base/zfile.h"
#include "dravix/config/switches.h"
#include "dravix/platform/ini.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <filesystem>
#include <iostream>

namespace dravix::cli {
namespace {

using config::SwitchCaching;
using config::SwitchInfo;
using config::SwitchRule;

std::string FormatValue(const SwitchInfo& s, double v) {
  char text[32];
  if (s.rule == SwitchRule::kRatio)
    std::snprintf(text, sizeof text, "%.6g", v);
  else
    std::snprintf(text, sizeof text, "%u", static_cast<unsigned>(static_cast<long long>(v)));
  return text;
}

std::string Source(const SwitchInfo& s) {
  const std::string path = GetModulePath() + s.file;
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return "default: no file";
  const std::string key = s.key;
  if (!key.empty() && key.back() == ' ') return "default: key ends in a blank";
  if (platform::LookupIniValue(path, s.section, s.key)) return "file";
  return "default: no key";
}

const char* CachingText(SwitchCaching c) { return c == SwitchCaching::kKept ? "kept" : "every call"; }

int Run() {
  nlohmann::json out = nlohmann::json::array();
  Table table({"switch", "value", "source", "file", "section", "key", "default", "read"});
  for (const SwitchInfo& s : config::SwitchTable()) {
    const std::string value = FormatValue(s, s.value());
    const std::string source = Source(s);
    if (Globals().json) {
      out.push_back({{"switch", s.function},
                     {"value", s.rule == SwitchRule::kRatio ? nlohmann::json(s.value())
                                                            : nlohmann::json(static_cast<unsigned>(s.value()))},
                     {"source", source},
                     {"file", s.file},
                     {"section", s.section},
                     {"key", s.key},
                     {"default", s.defaultText},
                     {"read", CachingText(s.caching)}});
    } else {
      table.Add({s.function, value, source, s.file, s.section, "\"" + std::string(s.key) + "\"", s.defaultText,
                 CachingText(s.caching)});
    }
  }
  if (Globals().json)
    std::cout << out.dump(2) << "\n";
  else
    table.Print(std::cout);
  return kExitOk;
}

void Register(CLI::App& app) {
  CLI::App* cmd = AddCommand(&app, "switches",
                             "List the feature switches of Live.ini, OEM.ini and LiveTag.ini with their values", Run);
  AddJsonFlag(cmd);
}

const Registration reg{40, Register};

}  // namespace
}  // namespace dravix::cli
