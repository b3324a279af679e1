// `dravix config`: the option document "DVROPTION.XML" of the program folder,
// read and changed through the option records (never by editing its text).
#include "dravix/config/dvroption.h"
#include "dravix/config/optionkeys.h"
#include "dravix/config/xmldoc.h"
#include "dravix/platform/nocase.h"
#include "dravix/platform/secret_input.h"
#include "tools/command.h"
#include "tools/edit.h"
#include "tools/table.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string_view>

namespace dravix::cli {
namespace {

constexpr const char* kPathHelp =
    "PATH is the element path of a setting in the document, below its root, with '/' between\n"
    "the steps (a leading \"ZeploXML/\" and '\\' are accepted too; case does not matter):\n"
    "  General/SiteName                          Camera/Camera3/DsRecord/FrameRate\n"
    "  Camera/Camera0/DsAction/DsPagerComPort    Player/dsTalk/CurVolume\n"
    "Cameras are Camera0..Camera15. `dravix config show` lists every path with its value;\n"
    "a missing document shows the defaults; `set` creates it.\n";

struct Options {
  std::string section;
  std::string path;
  std::string value;
  bool yes = false;
};

Options& Opts() {
  static Options o;
  return o;
}

std::string DocumentFile() { return ZXMLMGR::Instance()->GetFilename(); }

// The settings of the document's bytes (the defaults when there are none).
// An existing document that does not parse is a failure, never replaced.
std::unique_ptr<tagDSZEPLODVROPTION> Parse(ZXMLMGR& doc, const std::optional<std::string>& bytes) {
  auto o = std::make_unique<tagDSZEPLODVROPTION>();
  const std::string_view data = bytes ? std::string_view(*bytes) : std::string_view();
  doc.LoadOptionFromBuffer(data.data(), data.size(), *o);
  if (bytes && doc.LastLoadParsed() != 1) {
    throw Failure(DocumentFile() + " is not an option document: " + doc.LastLoadError() +
                  " (left as it is; `dravix config reset` replaces it, keeping a copy)");
  }
  return o;
}

// The settings as they are on disk, read without writing anything: a
// missing document shows the defaults and says so.
std::unique_ptr<tagDSZEPLODVROPTION> Load() {
  const std::optional<std::string> bytes = ReadIfExists(DocumentFile());
  if (!bytes) std::cerr << "dravix: " << DocumentFile() << " does not exist yet; these are the defaults\n";
  ZXMLMGR doc;
  return Parse(doc, bytes);
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
  Table t({"path", "value", "type"});
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
  // Read, change and save under the folder's edit lock, so that two edits
  // at once both land.
  FileEdit edit(DocumentFile());
  ZXMLMGR doc;
  auto o = Parse(doc, edit.Read());
  std::string error;
  switch (config::SetOptionKey(*o, Opts().path, Opts().value, &error)) {
    case config::SetKeyResult::kUnknownPath:
      throw UsageError("unknown setting path \"" + Opts().path + "\" (see `dravix config show`)");
    case config::SetKeyResult::kBadValue:
      throw UsageError(error);
    case config::SetKeyResult::kSet:
      break;
  }
  std::string bytes;
  doc.SaveOptionToBuffer(*o, 0, bytes);
  SaveOrFail(edit.file(), bytes, 0644);
  // Read it back the way any other program would.
  ZXMLMGR fresh;
  const auto back = Parse(fresh, ReadIfExists(edit.file()));
  const auto before = config::ListOptionKeys(*o);
  const auto after = config::ListOptionKeys(*back);
  const config::OptionKey* want = Find(before, Opts().path);
  const config::OptionKey* got = Find(after, Opts().path);
  if (want == nullptr || got == nullptr || want->value != got->value)
    throw Failure(edit.file() + " did not keep " + Opts().path +
                  " (is its root element something other than ZeploXML?)");
  if (Globals().json)
    std::cout << nlohmann::ordered_json{{"path", want->path}, {"value", JsonValue(*want)}}.dump(2) << "\n";
  else
    std::cout << want->path << " = " << want->value << "\n";
  return kExitOk;
}

// Whether the user wants the document replaced: --yes, else a "y" typed
// on the terminal. Off a terminal nobody can answer, so --yes is needed.
bool ConfirmReset() {
  if (Opts().yes) return true;
  if (!platform::StdinIsTerminal())
    throw UsageError("config reset replaces " + DocumentFile() +
                     " with the defaults; standard input is not a terminal to ask on, so give --yes");
  std::cerr << "Replace " << DocumentFile() << " with the default settings (the old one is kept as " << DocumentFile()
            << ".bad)? [y/N] " << std::flush;
  std::string answer;
  if (!std::getline(std::cin, answer)) return false;
  return answer == "y" || answer == "Y" || EqualNoCase(answer, "yes");
}

int Reset() {
  if (!ConfirmReset()) {
    std::cerr << "dravix: not reset; " << DocumentFile() << " is as it was\n";
    return kExitFailure;
  }
  FileEdit edit(DocumentFile());
  const std::string& file = edit.file();
  std::string kept;
  nlohmann::ordered_json keptJson = nullptr;
  if (ReadIfExists(file)) {
    if (!config::KeepUnreadableDocument(file)) throw Failure("cannot keep a copy of " + file + "; not reset");
    kept = " (the old one is kept as " + file + ".bad)";
    keptJson = file + ".bad";
  }
  ZXMLMGR doc;
  const auto defaults = Parse(doc, std::nullopt);
  std::string bytes;
  doc.SaveOptionToBuffer(*defaults, 0, bytes);
  SaveOrFail(file, bytes, 0644);
  if (Globals().json)
    std::cout << nlohmann::ordered_json{{"file", file}, {"kept", keptJson}}.dump(2) << "\n";
  else
    std::cout << "wrote the default option document to " << file << kept << "\n";
  return kExitOk;
}

void RegisterConfig(CLI::App& app) {
  CLI::App* config = AddCommand(&app, "config", "Show and change the option document (DVROPTION.XML)");
  config->footer(kPathHelp);

  CLI::App* show = AddCommand(config, "show", "List the settings with their paths and values", Show);
  show->add_option("SECTION", Opts().section,
                   "Only this section or subtree (General, Camera, Camera/Camera3, Device, View, Map, User, "
                   "Audio, Player, POS)");
  AddJsonFlag(show);
  AddLangOption(show);
  show->footer(kPathHelp);

  CLI::App* get = AddCommand(config, "get", "Print the value of one setting", Get);
  get->add_option("PATH", Opts().path, "The setting's path")->required();
  AddJsonFlag(get);
  AddLangOption(get);
  get->footer(kPathHelp);

  CLI::App* set = AddCommand(config, "set", "Change one setting and save the document", Set);
  set->add_option("PATH", Opts().path, "The setting's path")->required();
  set->add_option("VALUE", Opts().value, "An integer, a switch (0 or 1), a number or a text")->required();
  set->footer(std::string(kPathHelp) +
              "Examples:\n"
              "  dravix config set Camera/Camera3/DsRecord/FrameRate 15\n"
              "  dravix config set General/SiteName 'North gate'\n"
              "  dravix config set Camera/Camera0/DsAction/DsPagerComPort 2 --home /srv/recorder\n");
  AddJsonFlag(set);
  AddLangOption(set);
  AllowCreateHome(set);

  CLI::App* reset = AddCommand(config, "reset", "Replace the document with the default one", Reset);
  reset->footer(
      "The old document is kept as DVROPTION.XML.bad (the last three are kept). On a terminal the\n"
      "command asks first; elsewhere (scripts, pipes) it needs --yes:\n"
      "  dravix config reset --yes --home /srv/recorder\n");
  reset->add_flag("-y,--yes", Opts().yes, "Replace without asking (needed when standard input is not a terminal)");
  AddJsonFlag(reset);
  AddLangOption(reset);
  AllowCreateHome(reset);
}

Registration reg{30, &RegisterConfig};

}  // namespace
}  // namespace dravix::cli
