// `dravix cards`, `dravix devices` and `dravix migrate`: the capture cards
// as the simulated card profile describes them, the cameras, ports, chips
// and audio devices as the channel manager sees them, and the migration of
// legacy option files into the option document.
#include "tools/command.h"
#include "tools/table.h"

#include "dravix/base/zfile.h"
#include "dravix/config/legacy_options.h"
#include "dravix/live/avmanager.h"
#include "dravix/live/bt878utl.h"
#include "dravix/live/simcard.h"
#include "dravix/settings/setting.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <iostream>
#include <string>

namespace dravix::cli {
namespace {

std::string Bits(unsigned bits, int lines) {
  std::string s;
  for (int i = 0; i < lines && i < 32; ++i) s += (bits >> i) & 1u ? '1' : '0';
  return s;
}

int RunCards() {
  const std::string path = GetModulePath() + live::kCardProfileName;
  const live::SimCardProfile p = live::LoadCardProfile(path);
  live::ZSimCard card(p);
  int map[live::kPortMapSize];
  int codes[live::kCameraCodeSize];
  card.GetChannelMappingB(map, codes);
  if (Globals().json) {
    nlohmann::ordered_json out;
    out["profile"] = p.fromFile ? path : "built-in default";
    out["model"] = p.model;
    out["model_number"] = p.modelNumber;
    out["hardware_version"] = p.hardwareVersion;
    out["server"] = p.server;
    out["live_camera_index_base"] = p.liveCameraIndexBase;
    out["total_channels"] = card.GetTotalChannels();
    out["io_cards"] = p.ioCards;
    out["cards"] = nlohmann::json::array();
    for (int c = 0; c < card.GetCardNumber(); ++c) {
      const auto& l = p.cards[static_cast<size_t>(c)];
      out["cards"].push_back({{"card", c},
                              {"first_chip", card.GetChipIDOfCard(c)},
                              {"chips", l.chips},
                              {"chip_inputs", l.chipInputs},
                              {"channels", card.GetCardChannels(c)},
                              {"gpios", l.gpios},
                              {"contact", l.contact},
                              {"inputs", Bits(l.inputs, l.gpios)},
                              {"relays", Bits(l.relays, l.gpios)}});
    }
    out["ports"] = nlohmann::json::array();
    for (int port = 0; port < live::kCameraCodeSize; ++port)
      if (map[port] >= 0) out["ports"].push_back({{"port", port}, {"device", map[port]}, {"code", codes[port]}});
    std::cout << out.dump(2) << "\n";
    return kExitOk;
  }
  PrintPairs(std::cout,
             {{"profile", p.fromFile ? path : "built-in default (no " + std::string(live::kCardProfileName) + ")"},
              {"model", p.model},
              {"model number", std::to_string(p.modelNumber)},
              {"hardware version", std::to_string(p.hardwareVersion)},
              {"server", p.server ? "yes" : "no"},
              {"live camera index base", std::to_string(p.liveCameraIndexBase)},
              {"total channels", std::to_string(card.GetTotalChannels())},
              {"io cards (I/O cards)", std::to_string(p.ioCards)}});
  std::cout << "\n";
  Table cards({"card", "first chip", "chips", "chip inputs", "channels", "gpios", "contact", "inputs", "relays"});
  for (int c = 0; c < card.GetCardNumber(); ++c) {
    const auto& l = p.cards[static_cast<size_t>(c)];
    cards.Add({std::to_string(c), std::to_string(card.GetChipIDOfCard(c)), std::to_string(l.chips),
               std::to_string(l.chipInputs), std::to_string(card.GetCardChannels(c)), std::to_string(l.gpios),
               std::to_string(l.contact), Bits(l.inputs, l.gpios), Bits(l.relays, l.gpios)});
  }
  cards.Print(std::cout);
  std::cout << "\n";
  Table ports({"port", "device", "code (camera code)"});
  for (int port = 0; port < live::kCameraCodeSize; ++port)
    if (map[port] >= 0) ports.Add({std::to_string(port), std::to_string(map[port]), std::to_string(codes[port])});
  ports.Print(std::cout);
  return kExitOk;
}

std::string& ProgramOption() {
  static std::string name = "live";
  return name;
}

// The files the channel manager refreshes on every count, with their state
// before the count, to tell afterwards which it wrote.
std::vector<std::pair<std::string, std::string>> DeviceFilesState() {
  std::vector<std::pair<std::string, std::string>> state;
  for (const char* name : {live::kGPIOInfoName, "AudioDevice.zmi"}) {
    const std::string path = GetModulePath() + name;
    std::error_code ec;
    const auto time = std::filesystem::last_write_time(path, ec);
    state.emplace_back(name, ec ? "" : std::to_string(time.time_since_epoch().count()));
  }
  return state;
}

// The names of the files the count wrote.
std::vector<std::string> Refreshed(const std::vector<std::pair<std::string, std::string>>& before) {
  std::vector<std::string> names;
  const auto after = DeviceFilesState();
  for (size_t i = 0; i < after.size(); ++i)
    if (!after[i].second.empty() && after[i].second != before[i].second) names.push_back(after[i].first);
  return names;
}

int RunDevices() {
  const auto before = DeviceFilesState();
  live::DeviceEnumerators e;
  const std::string program = ProgramOption();
  e.programName = [program] { return program; };
  live::SetDeviceEnumerators(e);
  IAVManager* m = IAVManager::Instance();
  const int count = m->GetVideoCount();
  const int audio = m->GetAudioCount();
  const bool live = live::IsLiveProgramName(program);
  if (Globals().json) {
    nlohmann::ordered_json out;
    out["program"] = program;
    out["live_program"] = live;
    out["cameras"] = count;
    out["ports"] = nlohmann::json::array();
    for (int port = 0; port < count; ++port) {
      const int device = m->PortMap(port);
      nlohmann::ordered_json row{{"port", port},
                                 {"device", device >= 0 ? nlohmann::ordered_json(device) : nullptr},
                                 {"code", m->CameraCode(port)},
                                 {"chip", nullptr},
                                 {"input", nullptr},
                                 {"name", nullptr}};
      if (device >= 0) {
        row["chip"] = m->Device(device).chip;
        row["input"] = m->Device(device).input;
        row["name"] = m->Device(device).name;
      }
      out["ports"].push_back(row);
    }
    out["chips"] = nlohmann::json::array();
    for (int d = 0; d < live::kDeviceEntries; ++d)
      if (m->Device(d).chip >= 0)
        out["chips"].push_back(
            {{"device", d}, {"chip", m->Device(d).chip}, {"input", m->Device(d).input}, {"name", m->Device(d).name}});
    out["audio"] = nlohmann::json::array();
    for (int i = 0; i < audio; ++i) out["audio"].push_back(m->GetAuioDeviceName(i));
    out["audio_devices"] = audio;
    out["refreshed"] = Refreshed(before);
    std::cout << out.dump(2) << "\n";
    return kExitOk;
  }
  PrintPairs(std::cout, {{"program", program},
                         {"live program", live ? "true" : "false (16 ports, no cards asked)"},
                         {"cameras", std::to_string(count)},
                         {"audio devices", std::to_string(audio)}});
  std::cout << "\n";
  Table ports({"port", "device", "chip", "input", "code (camera code)", "name (device name)"});
  for (int port = 0; port < count; ++port) {
    const int device = m->PortMap(port);
    if (device < 0) {
      ports.Add({std::to_string(port), "-", "-", "-", std::to_string(m->CameraCode(port)), ""});
      continue;
    }
    const auto& d = m->Device(device);
    ports.Add({std::to_string(port), std::to_string(device), std::to_string(d.chip), std::to_string(d.input),
               std::to_string(m->CameraCode(port)), d.name});
  }
  if (!ports.empty()) ports.Print(std::cout);
  Table chips({"device", "chip", "input", "name"});
  for (int d = 0; d < live::kDeviceEntries; ++d)
    if (m->Device(d).chip >= 0)
      chips.Add({std::to_string(d), std::to_string(m->Device(d).chip), std::to_string(m->Device(d).input),
                 m->Device(d).name});
  std::cout << "\ncapture chips found: " << (chips.empty() ? "none" : "") << "\n";
  if (!chips.empty()) chips.Print(std::cout);
  std::cout << "\naudio capture devices: " << (audio == 0 ? "none" : "") << "\n";
  for (int i = 0; i < audio; ++i) std::cout << "  " << i << "  " << m->GetAuioDeviceName(i) << "\n";
  for (const std::string& name : Refreshed(before))
    std::cout << "\n"
              << name << " in " << GetModulePath() << " was refreshed, as the channel manager does on every count\n";
  return kExitOk;
}

int RunMigrate() {
  const config::MigrationReport& r = ISetting::Instance()->MigrationResult();
  if (Globals().json) {
    nlohmann::ordered_json out = nlohmann::json::array();
    for (const auto& f : r.files) {
      nlohmann::ordered_json row{
          {"file", f.file}, {"present", f.present}, {"read", f.accepted}, {"deleted", f.deleted}, {"bytes", f.bytes}};
      row["layout"] = nullptr;
      if (f.file == config::kLegacyDVROptionFile && f.present) row["layout"] = config::LegacyLayoutName(f.layout);
      row["kept_defaults"] = f.keptDefaults;
      row["note"] = f.note.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(f.note);
      out.push_back(row);
    }
    std::cout << out.dump(2) << "\n";
    return kExitOk;
  }
  Table t({"file", "present", "bytes", "read", "deleted", "layout", "note"});
  for (const auto& f : r.files) {
    t.Add({f.file, f.present ? "yes" : "no", f.present ? std::to_string(f.bytes) : "-", f.accepted ? "yes" : "no",
           f.deleted ? "yes" : "no",
           f.file == config::kLegacyDVROptionFile && f.present ? config::LegacyLayoutName(f.layout) : "", f.note});
  }
  t.Print(std::cout);
  for (const auto& f : r.files) {
    if (!f.accepted || f.keptDefaults.empty()) continue;
    std::cout << "\n" << f.file << " had no field for these; they keep their defaults:\n";
    for (const auto& k : f.keptDefaults) std::cout << "  " << k << "\n";
  }
  if (!r.AnyAccepted()) std::cout << "\nnothing migrated; DVROPTION.XML stands as it was\n";
  return kExitOk;
}

void Register(CLI::App& app) {
  CLI::App* migrate = AddCommand(&app, "migrate",
                                 "Migrate the legacy option files (DVROption.zmi, AudioOption.zmi, ...) of the "
                                 "program folder into DVROPTION.XML, reporting what was read and what kept defaults",
                                 RunMigrate);
  AddJsonFlag(migrate);
  AddLangOption(migrate);

  CLI::App* devices = AddCommand(&app, "devices",
                                 "List the cameras, ports, capture chips and audio devices as the channel manager "
                                 "sees them (V4L2 and ALSA devices over the simulated cards)",
                                 RunDevices);
  devices
      ->add_option("--program", ProgramOption(),
                   "Count as the program of this file name (\"live\" or a name containing \"live.exe\" is the "
                   "live program)")
      ->capture_default_str();
  AddJsonFlag(devices);

  CLI::App* cards = AddCommand(&app, "cards",
                               "Show the simulated capture cards of CardProfile.ini (layout, model, I/O lines, "
                               "port mapping)",
                               RunCards);
  AddJsonFlag(cards);
}

const Registration reg{60, Register};

}  // namespace
}  // namespace dravix::cli
