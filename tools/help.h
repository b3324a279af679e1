// How the `dravix` program presents itself: the help text of every command
// and the message of a command line it cannot parse.
//
// One style for all commands: descriptions in sentence case; a value's
// placeholder is its own name (DIR, TIME, N), never a parser type such as
// UINT or TEXT; defaults are said in the description; an option's bounds are
// part of its description. Parse errors start with "dravix:" and name the
// command whose help explains the usage.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace dravix::cli {

// The placeholder shown for an option's value: its type name when the
// command set one (DIR, WxH), else N for whole numbers, NUMBER for others,
// and the option's long name in capitals for text (--codec CODEC).
std::string ValueName(const CLI::Option& opt);

// The option's description as help shows it: its text, then its default
// when it has one that the text does not already give.
std::string OptionDescription(const CLI::Option& opt);

// Installs the help formatter and the parse-error message on `app`. Call it
// before subcommands are added: they take both from their parent.
void SetUpHelp(CLI::App& app);

}  // namespace dravix::cli
