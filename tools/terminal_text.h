// Text as a terminal shows it: the number of cells a string takes, and a
// form of any byte string that is safe to print in a column.
//
// Widths follow wcwidth() under a UTF-8 character type set up once for the
// program (C.UTF-8), whatever the user's locale: East Asian wide and full-
// width characters take two cells, combining marks none. Strings are
// decoded as UTF-8 here, never through the C library's multibyte state.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace dravix::cli {

// `text` with everything that would move the cursor or change the
// terminal's state written out instead: tab, newline and carriage return as
// \t \n \r, other C0 bytes and DEL as \xHH, C1 and other non-printing code
// points as \uHHHH, and bytes that are not UTF-8 as \xHH. Printable text,
// including backslashes, is left as it is.
std::string EscapeForTerminal(std::string_view text);

// The cells `text` takes on a terminal. Meant for text that went through
// EscapeForTerminal; anything it would escape counts as its escaped length.
size_t TerminalWidth(std::string_view text);

// Whether standard output is a terminal.
bool StdoutIsTerminal();

}  // namespace dravix::cli
