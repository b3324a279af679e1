#include "tools/command.h"

#include "dravix/base/zfile.h"
#include "dravix/config/lang_table.h"
#include "dravix/media/codec_log.h"
#include "dravix/platform/module_path.h"

#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <utility>
#include <vector>

namespace dravix::cli {
namespace {

int g_status = kExitOk;

std::vector<std::pair<int, void (*)(CLI::App&)>>& Areas() {
  static std::vector<std::pair<int, void (*)(CLI::App&)>> areas;
  return areas;
}

// Makes the program folder the one named by --home (created when missing).
void ApplyHome() {
  const std::string& home = Globals().home;
  if (home.empty()) return;
  std::error_code ec;
  std::filesystem::create_directories(home, ec);
  if (ec) throw Failure("cannot create program folder " + home + ": " + ec.message());
  SetModulePath(std::filesystem::absolute(home).string().c_str());
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
  cmd->add_option("--home", Globals().home, "program folder (default: $DRAVIX_HOME, else the executable's folder)")
      ->type_name("DIR");
  if (run) {
    cmd->callback([run = std::move(run)] {
      ApplyHome();
      g_status = run();
    });
  } else {
    cmd->require_subcommand(1);
  }
  return cmd;
}

void AddJsonFlag(CLI::App* cmd) { cmd->add_flag("--json", Globals().json, "print JSON instead of a table"); }

int Main(int argc, char** argv) {
  // A program folder without language databases reads the ones built beside
  // the program (a build tree) or installed with it (prefix/share/dravix).
  const std::string exe = platform::ExecutableFolder();
  config::SetLangDatabaseFallbacks({exe + "lang/", exe + "../share/dravix/"});
  CLI::App app{"dravix: the multi-camera recorder's shared library, from the shell"};
  app.name("dravix");
  app.require_subcommand(1);
  app.add_option("--home", Globals().home, "program folder")->type_name("DIR");
  app.set_version_flag("--version", [] {
    return std::string("dravix " DRAVIX_VERSION "\nbuilt with CLI11 " CLI11_VERSION ", nlohmann_json ") +
           std::to_string(NLOHMANN_JSON_VERSION_MAJOR) + "." + std::to_string(NLOHMANN_JSON_VERSION_MINOR) + "." +
           std::to_string(NLOHMANN_JSON_VERSION_PATCH) + ", pugixml " + std::to_string(PUGIXML_VERSION / 1000) + "." +
           std::to_string(PUGIXML_VERSION % 1000 / 10) + "\nruns with " + media::CodecLibraryVersions();
  });
  // Parse errors say who speaks, as every other error of the program does.
  app.failure_message([](const CLI::App*, const CLI::Error& e) {
    return "dravix: " + std::string(e.what()) + "\nRun with --help for more information.\n";
  });
  std::stable_sort(Areas().begin(), Areas().end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (auto& [order, add] : Areas()) add(app);
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
