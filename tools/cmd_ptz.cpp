// `dravix ptz models`: the camera models of "PTZ.ini" (current directory,
// or --dir); `dravix ptz send MODEL PORT CODE [--hold MS]`: one command to a
// camera through the PTZ worker, as the recorder sends it.
#include "tools/command.h"
#include "tools/table.h"

#include "dravix/live/ptzcontrol.h"
#include "dravix/live/ptzini.h"
#include "dravix/platform/serial_port.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>

namespace dravix::cli {
namespace {

struct PtzOptions {
  std::string dir;
  int model = 0;
  int port = 0;
  int code = 0;
  int hold = 500;
};

PtzOptions& Options() {
  static PtzOptions o;
  return o;
}

void EnterDir() {
  const std::string& dir = Options().dir;
  if (!dir.empty()) {
    std::error_code ec;
    std::filesystem::current_path(dir, ec);
    if (ec) throw Failure("cannot enter " + dir + ": " + ec.message());
  }
  std::error_code ec;
  if (!std::filesystem::is_regular_file(PTZIniPath(), ec)) throw Failure("no " + PTZIniPath());
}

int CountCodes(const tagPTZDEVICE& d) {
  int n = d.presetPrefix ? 1 : 0;
  for (int k = 0; k < tagPTZDEVICE::kMoves; ++k) n += (d.start[k] ? 1 : 0) + (d.stop[k] ? 1 : 0);
  for (int k = 0; k < tagPTZDEVICE::kPresets; ++k) n += (d.setPreset[k] ? 1 : 0) + (d.findPreset[k] ? 1 : 0);
  return n;
}

std::string StopText(BYTE stop) { return stop == 2 ? "2" : stop == 15 ? "1.5 (as 2)" : "1"; }
std::string ParityText(BYTE parity) {
  static const char* names[] = {"none", "odd", "even", "mark", "space"};
  return parity < 5 ? names[parity] : "invalid " + std::to_string(parity);
}

std::string HexText(const PTZCode& code, int length) {
  if (!code) return "(none)";
  static const char* digits = "0123456789ABCDEF";
  std::string out;
  for (int i = 0; i < length; ++i) {
    if (i) out += ' ';
    out += digits[code[i] >> 4];
    out += digits[code[i] & 15];
  }
  return out;
}

int Models() {
  EnterDir();
  std::vector<std::pair<int, std::string>> models;
  EnumPTZModels([&models](int n, const char* name) { models.emplace_back(n, name); });
  nlohmann::json out = nlohmann::json::array();
  Table table({"model", "name", "code length (bytes)", "codes", "baud", "bits", "parity", "stop", "no preset delay"});
  for (const auto& [n, name] : models) {
    tagPTZDEVICE d;
    const int length = LoadPTZDevice(n, d);
    if (Globals().json) {
      out.push_back({{"model", n},
                     {"name", name},
                     {"code_length", length},
                     {"codes", CountCodes(d)},
                     {"baud", d.wBaudRate},
                     {"bits", d.byBits},
                     {"parity", d.byParity},
                     {"stop", d.byStop},
                     {"no_preset_delay", d.wNoPresetDelay}});
    } else {
      table.Add({std::to_string(n), name, length ? std::to_string(length) : "0 (unusable)",
                 std::to_string(CountCodes(d)), std::to_string(d.wBaudRate), std::to_string(d.byBits),
                 ParityText(d.byParity), StopText(d.byStop), d.wNoPresetDelay ? "yes" : "no"});
    }
  }
  if (Globals().json) {
    std::cout << out.dump(2) << "\n";
  } else if (table.empty()) {
    std::cout << "no models in " << PTZIniPath() << " ([COMMON] NUMBERS is " << GetPTZModelCount() << ")\n";
  } else {
    table.Print(std::cout);
  }
  return kExitOk;
}

// What a command sends, for the report.
std::vector<std::string> Plan(const tagPTZDEVICE& d, int code, int hold, bool noPresetDelay) {
  const int n = d.nCodeLength;
  const std::string wait = "hold " + std::to_string(hold) + " ms";
  if (code >= 1 && code <= 10)
    return {std::string(kPTZMoveNames[code - 1]) + ": " + HexText(d.start[code - 1], n), wait,
            std::string(kPTZMoveNames[code - 1]) + "_: " + HexText(d.stop[code - 1], n)};
  if (code >= 1001 && code <= 1010)
    return {std::string(kPTZMoveNames[code - 1001]) + "_: " + HexText(d.stop[code - 1001], n), wait};
  if (code >= 128 && code <= 255)
    return {"SetPreset" + std::to_string(code - 128) + ": " + HexText(d.setPreset[code - 128], n), wait};
  std::vector<std::string> steps{
      "Preset_: " + HexText(d.presetPrefix, n),
      "FindPreset" + std::to_string(code - 256) + ": " + HexText(d.findPreset[code - 256], n)};
  if (!noPresetDelay) steps.push_back(wait);
  return steps;
}

int Send() {
  const PtzOptions& o = Options();
  const int c = o.code;
  if (!((c >= 1 && c <= 10) || (c >= 1001 && c <= 1010) || (c >= 128 && c <= 383)))
    throw UsageError("code " + std::to_string(c) + " is not a PTZ command (1..10, 1001..1010, 128..255, 256..383)");
  if (o.port < 1 || o.port > 65535) throw UsageError("PORT must be 1..65535");
  if (o.hold < 0) throw UsageError("--hold must not be negative");
  EnterDir();
  const std::string port = "COM" + std::to_string(o.port);
  {
    int error = 0;
    const std::unique_ptr<platform::SerialPort> probe = platform::SerialPort::Open(port, &error);
    if (probe == nullptr)
      throw Failure("cannot open " + port + " (" + platform::SerialDevicePath(port) + "): " + std::strerror(error));
    // Bytes written to a file or a FIFO reach no camera.
    platform::SerialState state;
    if (!probe->GetState(&state, &error))
      throw Failure(port + " (" + platform::SerialDevicePath(port) + ") is not a serial port: " + std::strerror(error) +
                    "; nothing was sent");
  }
  ZPTZControl ptz;
  ptz.SetHoldTime(static_cast<DWORD>(o.hold));
  if (!ptz.OpenDevice(o.model, o.port))
    throw Failure("model " + std::to_string(o.model) + " cannot be used: no CodeLength in [PTZ" +
                  std::to_string(o.model) + "] of " + PTZIniPath());
  const tagPTZDEVICE& d = *ptz.GetDevice();
  std::cout << "model " << o.model << " on " << port << " (" << platform::SerialDevicePath(port) << "), " << d.wBaudRate
            << " baud, " << int{d.byBits} << " bits, parity " << ParityText(d.byParity) << ", stop "
            << StopText(d.byStop) << "\n";
  for (const std::string& step : Plan(d, c, o.hold, d.wNoPresetDelay != 0)) std::cout << "  " << step << "\n";
  ptz.PostCommand(c);
  if (!ptz.WaitIdle(static_cast<DWORD>(o.hold) + 30000)) throw Failure("the PTZ worker did not finish");
  return kExitOk;
}

void Register(CLI::App& app) {
  PtzOptions& o = Options();
  CLI::App* ptz = AddCommand(&app, "ptz", "PTZ camera models from PTZ.ini and commands over serial ports");
  CLI::App* models = AddCommand(ptz, "models", "The models of PTZ.ini with their line settings", Models);
  models->add_option("--dir", o.dir, "Folder holding PTZ.ini (default: the current directory)")->type_name("DIR");
  AddJsonFlag(models);
  CLI::App* send = AddCommand(ptz, "send",
                              "Send command CODE of model MODEL over COM<PORT> ($DRAVIX_COM<PORT>, else "
                              "/dev/ttyS<PORT-1>): 1..10 move, 1001..1010 stop, 128..255 set preset, "
                              "256..383 go to preset",
                              Send);
  send->add_option("MODEL", o.model, "Model number ([PTZ<MODEL>] in PTZ.ini)")->required();
  send->add_option("PORT", o.port, "Serial port number")->required();
  send->add_option("CODE", o.code, "Command code")->required();
  send->add_option("--hold", o.hold, "Hold time in milliseconds (default 500)")->type_name("MS");
  send->add_option("--dir", o.dir, "Folder holding PTZ.ini (default: the current directory)")->type_name("DIR");
}

const Registration reg{75, Register};

}  // namespace
}  // namespace dravix::cli
