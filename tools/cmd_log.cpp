// `dravix log write NAME TEXT` appends one line to a log the way the
// recorder does; `dravix log tail NAME` prints the end of a log.
#include "tools/command.h"
#include "tools/terminal_text.h"

#include "dravix/base/zfile.h"
#include "dravix/config/switches.h"
#include "dravix/log/ilog.h"
#include "tools/edit.h"

#include <nlohmann/json.hpp>

#include <iostream>
#include <optional>
#include <sstream>
#include <vector>

namespace dravix::cli {
namespace {

struct LogOptions {
  std::string name;
  std::string text;
  bool raw = false;
  int lines = 10;
  bool old = false;
};

LogOptions& Options() {
  static LogOptions o;
  return o;
}

int Write() {
  const LogOptions& o = Options();
  ILog* log = ILog::Instance();
  if (!log->SetFilename(o.name.c_str()))
    throw Failure("cannot open log " + o.name + " in " +
                  (EnableZeploEmbeded() ? dravix::log::EmbeddedBaseFolder() : GetModulePath()));
  const std::string text = o.raw ? o.text : o.text + "\r\n";
  if (!log->Write(text.c_str())) throw Failure("log " + log->GetFilePath() + " refused the write (disk nearly full?)");
  std::cout << "wrote " << text.size() << " bytes to " << log->GetFilePath() << "\n";
  return kExitOk;
}

int Tail() {
  const LogOptions& o = Options();
  if (o.lines < 0) throw UsageError("--lines must not be negative");
  // The old generation always sits in the program folder.
  const std::string path = o.old
                               ? GetModulePath() + "OLD" + o.name
                               : (EnableZeploEmbeded() ? dravix::log::EmbeddedBaseFolder() : GetModulePath()) + o.name;
  const std::optional<std::string> bytes = ReadIfExists(path);
  if (!bytes) throw Failure("cannot read the log " + path + ": no such file");
  std::istringstream in(*bytes);
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(std::move(line));
  }
  const size_t from = lines.size() > static_cast<size_t>(o.lines) ? lines.size() - static_cast<size_t>(o.lines) : 0;
  if (Globals().json) {
    nlohmann::json j{{"file", path}, {"lines", nlohmann::json::array()}};
    for (size_t i = from; i < lines.size(); ++i) j["lines"].push_back(lines[i]);
    // Log lines are the recorder's bytes: what is not UTF-8 shows as U+FFFD.
    std::cout << j.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    return kExitOk;
  }
  // On a terminal a line cannot move the cursor or set colours; a pipe
  // gets the bytes as they are in the file.
  const bool terminal = StdoutIsTerminal();
  for (size_t i = from; i < lines.size(); ++i) std::cout << (terminal ? EscapeForTerminal(lines[i]) : lines[i]) << "\n";
  return kExitOk;
}

void Register(CLI::App& app) {
  CLI::App* log = AddCommand(&app, "log", "Append to and read the recorder's text logs");
  CLI::App* write =
      AddCommand(log, "write", "Append TEXT and \"\\r\\n\" to the log file NAME (the general log)", Write);
  write->add_option("NAME", Options().name, "Log file name, e.g. Live.log")->required();
  write->add_option("TEXT", Options().text, "The text of the line")->required();
  write->add_flag("--raw", Options().raw, "Append TEXT as given, without a line end");
  AllowCreateHome(write);
  CLI::App* tail = AddCommand(log, "tail", "Print the last lines of the log file NAME", Tail);
  tail->add_option("NAME", Options().name, "Log file name, e.g. Live.log")->required();
  tail->add_option("-n,--lines", Options().lines, "How many lines (default 10)");
  tail->add_flag("--old", Options().old, "Read the rotated generation (\"OLD\" + NAME)");
  AddJsonFlag(tail);
}

const Registration reg{45, Register};

}  // namespace
}  // namespace dravix::cli
