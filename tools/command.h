// Subcommand registry and the conventions every `dravix` subcommand keeps.
//
// A subcommand area lives in tools/cmd_<area>.cpp and registers itself with
// a file-scope `Registration`, so main.cpp never changes when an area is
// added. Every command made through AddCommand() takes `--home DIR` and
// `--help`. The conventions:
//
// Exit status: 0 success, 1 failure (the command said why on stderr),
// 2 wrong usage (CLI11 parse errors and UsageError). `dravix --version`
// prints the program's version and the libraries it was built with.
//
// Predicates (`files has`, `users check`) answer a yes/no question: 0 is
// "yes" and 1 is "no", and the answer is also printed on standard output
// (with --json too). A predicate that cannot answer (the table cannot be
// opened, the accounts cannot be read) is a failure like any other: exit 1,
// nothing on standard output, the reason on standard error. So a script
// tells "no" from "could not ask" by the answer on standard output.
//
// The program folder: --home must name an existing folder (exit 2 when it
// does not, nothing is created). Commands that set a folder up (they write
// the program folder's files) offer --create (AllowCreateHome) to make it.
//
// --json (AddJsonFlag) is on every command that prints data. Keys are
// snake_case; a value that cannot be had is null, never left out. Where the
// text output is a table or a "name  value" listing, each column or name
// is a JSON key: lower case, blanks as '_', a note in parentheses left out
// ("free to caller (bytes)" is "free_to_caller"), in the same unit. JSON
// may add raw forms (a FILETIME beside a formatted time). Commands that
// change something and print one line saying what they did (users add,
// schedule enable, cut, export, frame, ...) have no --json: their exit
// status is the answer.
//
// Interface texts (account names, privilege names, default names) come
// from the language table the library chooses ("LiveVar.ini"), or the one
// named by --lang (AddLangOption).
//
// Errors say what failed, where (the file, the byte or record) and why in
// plain words (the OS reason); a result code, when there is one, follows in
// brackets: "start time: no record at byte 4096 [E_FAIL 0x80004005]".
#pragma once

#include "dravix/platform/wintypes.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <stdexcept>
#include <string>

namespace dravix::cli {

enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

// Options shared by all subcommands, filled in while parsing.
struct GlobalOptions {
  std::string home;         // --home DIR: the program folder; empty = default
  bool createHome = false;  // --create, where the command offers it
  bool json = false;        // --json, where the command offers it
  std::string lang;         // --lang CODE, where the command offers it; empty = the library's choice
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
// Adds `--create` to a command that sets up a program folder: a missing
// --home folder is made (with its parents) instead of refused.
void AllowCreateHome(CLI::App* cmd);
// Adds `--lang CODE` (ENG, CHT, CHS, ... : the language tables the library
// knows, case ignored) to a command that prints interface texts. The
// texts then come from that table instead of the one "LiveVar.ini" names.
void AddLangOption(CLI::App* cmd);

// A result code in brackets, for the end of an error message:
// " [E_FAIL 0x80004005]".
std::string ResultCodeText(HRESULT hr);

// The area registration hook: `static Registration reg{"time", &RegisterTime};`.
// `order` sorts areas in the help listing.
struct Registration {
  Registration(int order, void (*add)(CLI::App& app));
};

}  // namespace dravix::cli
