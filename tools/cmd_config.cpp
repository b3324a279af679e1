// `dravix config`: the option document "DVROPTION.XML" of the program folder,
// read and changed through the option records (never by editing its text).
#include "dravix/base/nocase.h"
#include "dravix/config/dvroption.h"
#include "dravix/config/optionkeys.h"
#include "dravix/config/xmldoc.h"
#include "tools/command.h"
#include "tools/table.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <memory>

namespace dravix::cli {
namespace {

constexpr const char* kPathHelp =
    "PATH is the element path of a setting in the document, below its root, with '/' between\n"
    "the steps (a leading \"ZeploXML/\" and '\\' are accepted too; case does not matter):\n"
    "  General/SiteName                          Camera/Camera3/DsRecord/FrameRate\n"
    "  Camera/Camera0/DsAction/DsPagerComPort    Player/dsTalk/CurVolume\n"
    "Cameras are Camera0..Camera15. `dravix config show` lists every path with its value;\n"
    "a missing document is created with every default first.\n";

struct Options {
  std::string section;
  std::string path;
  std::string value;
};

Options& Opts() {
  static Options o;
  return o;
}

std::unique_ptr<tagDSZEPLODVROPTION> Load() {
  auto o = std::make_unique<tagDSZEPLODVROPTION>();
  ZXMLMGR::Instance()->LoadOption(*o);
  return o;
}

// Whether `path` lies in `section` (a leading part of paths, whole steps).
bool InSection(const std::string& path, const std::string& section) {
  if (section.empty()) return true;
  if (path.size() < section.size()) return false;
  if (!EqualNoCase(std::string_view(path).substr(0, section.size()), section)) return false;
  return path.size() == section.size() || path[section.size()] == '/';
}

nlohmann::ordered_json JsonValue(const config::OptionKey& k) {
  switch (k.kind) {
    case config::OptionKind::kInt:
    case config::OptionKind::kSwitch:
      return std::stoll(k.value);
    case config::OptionKind::kFloat:
      return std::stod(k.value);
    case config::OptionKind::kText:
      break;
  }
  // Texts are single-byte in the records; bytes that are not UTF-8 are
  // shown as '?' rather than breaking the JSON output.
  nlohmann::ordered_json j = k.value;
  try {
    (void)j.dump();
  } catch (const nlohmann::json::exception&) {
    std::string safe = k.value;
    for (char& c : safe)
      if (static_cast<unsigned char>(c) >= 0x80) c = '?';
    j = safe;
  }
  return j;
}

const char* KindName(config::OptionKind k) {
  switch (k) {
    case config::OptionKind::kInt:
      return "integer";
    case config::OptionKind::kSwitch:
      return "switch";
    case config::OptionKind::kFloat:
      return "number";
    case config::OptionKind::kText:
      return "text";
  }
  return "";
}

int Show() {
  auto o = Load();
  const std::string section = config::NormalizeOptionPath(Opts().section);
  const auto keys = config::ListOptionKeys(*o);
  std::vector<const config::OptionKey*> chosen;
  for (const auto& k : keys)
    if (InSection(k.path, section)) chosen.push_back(&k);
  if (chosen.empty()) throw UsageError("no section or setting \"" + Opts().section + "\" in the option document");
  if (Globals().json) {
    nlohmann::ordered_json j = nlohmann::ordered_json::object();
    for (const auto* k : chosen) j[k->path] = JsonValue(*k);
    std::cout << j.dump(2) << "\n";
    return kExitOk;
  }
  Table t({"PATH", "VALUE", "TYPE"});
  for (const auto* k : chosen) {
    std::string type = KindName(k->kind);
    if (k->kind == config::OptionKind::kText) type += " (max " + std::to_string(k->maxLength) + ")";
    t.Add({k->path, k->value, type});
  }
  t.Print(std::cout);
  return kExitOk;
}

const config::OptionKey* Find(const std::vector<config::OptionKey>& keys, const std::string& path) {
  const std::string want = config::NormalizeOptionPath(path);
  for (const auto& k : keys)
    if (EqualNoCase(k.path, want)) return &k;
  return nullptr;
}

int Get() {
  auto o = Load();
  const auto keys = config::ListOptionKeys(*o);
  const config::OptionKey* k = Find(keys, Opts().path);
  if (k == nullptr) throw UsageError("unknown setting path \"" + Opts().path + "\" (see `dravix config show`)");
  if (Globals().json) {
    nlohmann::ordered_json j;
    j["path"] = k->path;
    j["value"] = JsonValue(*k);
    std::cout << j.dump(2) << "\n";
  } else {
    std::cout << k->value << "\n";
  }
  return kExitOk;
}

int Set() {
  auto o = Load();
  std::string error;
  switch (config::SetOptionKey(*o, Opts().path, Opts().value, &error)) {
    case config::SetKeyResult::kUnknownPath:
      throw UsageError("unknown setting path \"" + Opts().path + "\" (see `dravix config show`)");
    case config::SetKeyResult::kBadValue:
      throw UsageError(error);
    case config::SetKeyResult::kSet:
      break;
  }
  ZXMLMGR* doc = ZXMLMGR::Instance();
  if (doc->SaveOption(*o, 0) != 1) throw Failure("cannot write " + doc->GetFilename());
  // Read it back the way any other program would.
  auto back = std::make_unique<tagDSZEPLODVROPTION>();
  ZXMLMGR fresh;
  fresh.LoadOption(*back);
  const auto before = config::ListOptionKeys(*o);
  const auto after = config::ListOptionKeys(*back);
  const config::OptionKey* want = Find(before, Opts().path);
  const config::OptionKey* got = Find(after, Opts().path);
  if (want == nullptr || got == nullptr || want->value != got->value)
    throw Failure(doc->GetFilename() + " did not keep " + Opts().path +
                  " (is its root element something other than ZeploXML?)");
  std::cout << want->path << " = " << want->value << "\n";
  return kExitOk;
}

int Reset() {
  ZXMLMGR* doc = ZXMLMGR::Instance();
  const std::string file = doc->GetFilename();
  if (std::remove(file.c_str()) != 0 && errno != ENOENT) throw Failure("cannot remove " + file);
  Load();
  std::cout << "wrote the default option document to " << file << "\n";
  return kExitOk;
}

void RegisterConfig(CLI::App& app) {
  CLI::App* config = AddCommand(&app, "config", "Show and change the option document (DVROPTION.XML)");
  config->footer(kPathHelp);

  CLI::App* show = AddCommand(config, "show", "List the settings with their paths and values", Show);
  show->add_option("SECTION", Opts().section,
                   "only this section or subtree (General, Camera, Camera/Camera3, Device, View, Map, User,\n"
                   "Audio, Player, POS)");
  AddJsonFlag(show);
  show->footer(kPathHelp);

  CLI::App* get = AddCommand(config, "get", "Print the value of one setting", Get);
  get->add_option("PATH", Opts().path, "the setting's path")->required();
  AddJsonFlag(get);
  get->footer(kPathHelp);

  CLI::App* set = AddCommand(config, "set", "Change one setting and save the document", Set);
  set->add_option("PATH", Opts().path, "the setting's path")->required();
  set->add_option("VALUE", Opts().value, "an integer, a switch (0 or 1), a number or a text")->required();
  set->footer(kPathHelp);

  AddCommand(config, "reset", "Replace the document with the default one", Reset);
}

Registration reg{30, &RegisterConfig};

}  // namespace
}  // namespace dravix::cli
