// Reading a secret (a password) from the controlling terminal without
// showing it.
#pragma once

#include <string>

namespace dravix::platform {

// true when standard input is a terminal.
bool StdinIsTerminal();

// Writes `prompt` to standard error, reads one line from standard input
// with the terminal's echo switched off (and restored afterwards, also when
// the read fails) and strips the line end. false when standard input is not
// a terminal or the input ended before a line.
bool ReadSecretLine(const char* prompt, std::string* out);

}  // namespace dravix::platform
