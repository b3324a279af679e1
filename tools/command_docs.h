// Documents generated from the program's own command tree at build time, so
// that they never drift from the real commands and options: the manual page
// (installed as share/man/man1/dravix.1) and the bash completion script
// (share/bash-completion/completions/dravix).
//
// The build asks the built program for them with hidden options that no
// help lists: `dravix --man-page VERSION` and `dravix --completion bash`.
#pragma once

#include <CLI/CLI.hpp>

#include <ostream>
#include <string>
#include <vector>

namespace dravix::cli {

// The manual page of `app` and all its commands, in roff (man macros).
void WriteManPage(const CLI::App& app, const std::string& version, std::ostream& out);

// A bash completion script for `app`: command names, option names, folders
// after options that take a DIR, file names elsewhere.
void WriteBashCompletion(const CLI::App& app, std::ostream& out);

// Writes the document `args` (the arguments after the program name) ask
// for to standard output and returns the exit status; -1 when `args` are not
// such a request.
int WriteRequestedDocument(const CLI::App& app, const std::vector<std::string>& args);

}  // namespace dravix::cli
