// The language of interface texts the program prints (account and
// privilege names, default names of a new document): the table the
// library chooses for the program folder ("LiveVar.ini"), or the one a
// command's --lang names.
#pragma once

#include "dravix/platform/wintypes.h"

#include <string>
#include <vector>

namespace dravix::cli {

// The language codes of the library's tables, in its order: ENG, CHT, ...
std::vector<std::string> LangCodes();
// "ENG, CHT, CHS, ...", for messages.
std::string LangCodeList();

// Makes the account and option texts come from the table of `code` (one
// of LangCodes(), case ignored) for the rest of the command. Throws
// UsageError listing the codes for anything else.
void UseLang(const std::string& code);

// The code of the table in use: the one UseLang chose, else the one the
// library chooses for the program folder.
std::string CurrentLangCode();

// Text `id` of the table of `code`; "" when the database cannot be opened
// (said once on standard error) or the table has no such id. Each table
// is read once per run.
std::string LangText(const std::string& code, UINT id);

}  // namespace dravix::cli
