// Subcommand registry and the conventions every `dravix` subcommand keeps.
//
// A subcommand area lives in tools/cmd_<area>.cpp and registers itself with
// a file-scope `Registration`, so main.cpp never changes when an area is
// added. Every command made through AddCommand() takes `--home DIR` and
// `--help`; data commands add `--json` with AddJsonFlag().
//
// Exit status: 0 success, 1 failure (the command said why on stderr),
// 2 wrong usage (CLI11 parse errors and UsageError).
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <stdexcept>
#include <string>

namespace dravix::cli {

enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

// Options shared by all subcommands, filled in while parsing.
struct GlobalOptions {
  std::string home;   // --home DIR: the program folder; empty = default
  bool json = false;  // --json, where the command offers it
};

GlobalOptions& Globals();

// Thrown by a command's callback for bad arguments that CLI11 could not
// see (a malformed time, a camera out of range): exit status 2.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// Thrown for a failure of the work itself: exit status 1.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Adds a subcommand to `parent` with `--home DIR`. The callback returns the
// exit status. Applies the program folder before the callback runs.
CLI::App* AddCommand(CLI::App* parent, const std::string& name, const std::string& description,
                     std::function<int()> run = {});
// Adds `--json` to a command.
void AddJsonFlag(CLI::App* cmd);

// The area registration hook: `static Registration reg{"time", &RegisterTime};`.
// `order` sorts areas in the help listing.
struct Registration {
  Registration(int order, void (*add)(CLI::App& app));
};

}  // namespace dravix::cli
