#include "tools/command.h"
#include "tools/command_docs.h"
#include "tools/help.h"

#include "dravix/base/zfile.h"
#include "dravix/config/lang_table.h"
#include "dravix/media/media_versions.h"
#include "dravix/platform/module_path.h"
#include "dravix/platform/odbc.h"
#include "tools/interface_lang.h"

#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <utility>
#include <vector>

#ifndef DRAVIX_VERSION
#error "DRAVIX_VERSION comes from the CMake project (tools/CMakeLists.txt)"
#endif

namespace dravix::cli {
namespace {

int g_status = kExitOk;

std::vector<std::pair<int, void (*)(CLI::App&)>>& Areas() {
  static std::vector<std::pair<int, void (*)(CLI::App&)>> areas;
  return areas;
}

// Makes the program folder the one named by --home. A missing folder is
// wrong usage (a mistyped name must not become a new program folder) unless
// the command offers --create and it was given.
void ApplyHome(bool createOffered) {
  const GlobalOptions& g = Globals();
  if (g.home.empty()) return;
  std::error_code ec;
  const auto status = std::filesystem::status(g.home, ec);
  if (status.type() == std::filesystem::file_type::not_found) {
    if (!g.createHome)
      throw UsageError("--home " + g.home + ": no such folder (give an existing program folder" +
                       std::string(createOffered ? ", or add --create to make it" : "") + ")");
    std::filesystem::create_directories(g.home, ec);
    if (ec) throw Failure("cannot create the program folder " + g.home + ": " + ec.message());
  } else if (ec) {
    throw UsageError("--home " + g.home + ": " + ec.message());
  } else if (status.type() != std::filesystem::file_type::directory) {
    throw UsageError("--home " + g.home + ": not a folder");
  }
  SetModulePath(std::filesystem::absolute(g.home).string().c_str());
}

std::string VersionText() {
  std::string text = std::string("dravix ") + DRAVIX_VERSION + "\nbuilt with:\n";
  auto line = [&text](const std::string& name, const std::string& version) {
    text += "  " + name + std::string(name.size() < 14 ? 14 - name.size() : 1, ' ') + version + "\n";
  };
  for (const media::MediaLibraryVersion& v : media::MediaLibraryVersions())
    line(v.name, v.built + (v.running == v.built ? "" : " (running " + v.running + ")"));
  line("pugixml", std::to_string(PUGIXML_VERSION / 1000) + "." + std::to_string(PUGIXML_VERSION % 1000 / 10));
  // The driver manager answers "03.52.0002.0003": ODBC 3.52, unixODBC 2.3.
  const std::string odbc = platform::OdbcManagerVersion();
  unsigned odbcMajor = 0, odbcMinor = 0, dmMajor = 0, dmMinor = 0;
  if (std::sscanf(odbc.c_str(), "%u.%u.%u.%u", &odbcMajor, &odbcMinor, &dmMajor, &dmMinor) == 4)
    line("unixODBC", std::to_string(dmMajor) + "." + std::to_string(dmMinor) + " (ODBC " + std::to_string(odbcMajor) +
                         "." + std::to_string(odbcMinor) + ")");
  else
    line("unixODBC", odbc.empty() ? "(the driver manager did not say)" : odbc);
  line("CLI11", CLI11_VERSION);
  line("nlohmann_json", std::to_string(NLOHMANN_JSON_VERSION_MAJOR) + "." +
                            std::to_string(NLOHMANN_JSON_VERSION_MINOR) + "." +
                            std::to_string(NLOHMANN_JSON_VERSION_PATCH));
  text.pop_back();  // CLI11 adds the line end
  return text;
}

}  // namespace

GlobalOptions& Globals() {
  static GlobalOptions g;
  return g;
}

Registration::Registration(int order, void (*add)(CLI::App&)) { Areas().emplace_back(order, add); }

CLI::App* AddCommand(CLI::App* parent, const std::string& name, const std::string& description,
                     std::function<int()> run) {
  CLI::App* cmd = parent->add_subcommand(name, description);
  cmd->footer("");  // a footer belongs to the command that sets it, never to its subcommands
  cmd->group("Commands");
  cmd->add_option("--home", Globals().home, "Program folder (default: $DRAVIX_HOME, else the executable's folder)")
      ->type_name("DIR");
  if (run) {
    cmd->callback([cmd, run = std::move(run)] {
      ApplyHome(cmd->get_option_no_throw("--create") != nullptr);
      if (!Globals().lang.empty()) UseLang(Globals().lang);
      g_status = run();
    });
  } else {
    cmd->require_subcommand(1);
  }
  return cmd;
}

void AddJsonFlag(CLI::App* cmd) { cmd->add_flag("--json", Globals().json, "Print JSON instead of a table"); }

void AllowCreateHome(CLI::App* cmd) {
  cmd->add_flag("--create", Globals().createHome, "Make the --home folder when it does not exist");
}

void AddLangOption(CLI::App* cmd) {
  cmd->add_option("--lang", Globals().lang,
                  "Language of interface texts: " + LangCodeList() + " (default: the NAME in LiveVar.ini, else CHT)")
      ->type_name("CODE");
}

std::string ResultCodeText(HRESULT hr) {
  char code[16];
  std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
  const char* name = hr == E_FAIL          ? "E_FAIL "
                     : hr == E_POINTER     ? "E_POINTER "
                     : hr == E_UNEXPECTED  ? "E_UNEXPECTED "
                     : hr == E_OUTOFMEMORY ? "E_OUTOFMEMORY "
                     : hr == E_INVALIDARG  ? "E_INVALIDARG "
                     : hr == S_FALSE       ? "S_FALSE "
                                           : "";
  return std::string(" [") + name + code + "]";
}

int Main(int argc, char** argv) {
  // A program folder without language databases reads the ones built beside
  // the program (a build tree) or installed with it (prefix/share/dravix).
  const std::string exe = platform::ExecutableFolder();
  config::SetLangDatabaseFallbacks({exe + "lang/", exe + "../share/dravix/"});
  CLI::App app{"The multi-camera recorder's shared library, from the shell"};
  app.name("dravix");
  SetUpHelp(app);
  app.require_subcommand(1);
  app.footer(
      "Run `dravix COMMAND --help` for a command's arguments and examples, `man dravix` for all of them.\n"
      "Exit status: 0 done, 1 failed (the reason is on standard error), 2 wrong usage.");
  app.add_option("--home", Globals().home, "Program folder")->type_name("DIR");
  app.set_version_flag("--version", VersionText, "Print the version and the libraries it was built with");
  std::stable_sort(Areas().begin(), Areas().end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (auto& [order, add] : Areas()) add(app);
  if (const int status = WriteRequestedDocument(app, std::vector<std::string>(argv + 1, argv + argc)); status >= 0)
    return status;
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return kExitUsage;
  } catch (const UsageError& e) {
    std::cerr << "dravix: " << e.what() << "\n";
    return kExitUsage;
  } catch (const Failure& e) {
    std::cerr << "dravix: " << e.what() << "\n";
    return kExitFailure;
  } catch (const std::exception& e) {
    std::cerr << "dravix: " << e.what() << "\n";
    return kExitFailure;
  }
  return g_status;
}

}  // namespace dravix::cli

int main(int argc, char** argv) { return dravix::cli::Main(argc, argv); }
