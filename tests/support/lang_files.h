// Language databases for tests: the ones the build made from lang/, copied
// into a test's program folder, and an ODBC configuration of the test's
// own so that registering "DVRLang" never touches the account's
// ~/.odbc.ini.
#pragma once

#include <string>

namespace dravix::test {

// The folder holding the built LiveMultiLang.mdb and PlayerMultiLang.mdb
// (with a trailing '/').
std::string BuiltLangFolder();

// Points ODBCINI at folder + "odbc.ini": user data sources are read and
// written there from now on in this process and its children.
void IsolateOdbc(const std::string& folder);

// IsolateOdbc(folder), then copies both built language databases into
// `folder` (the program folder of a test).
void InstallLangDatabases(const std::string& folder);

}  // namespace dravix::test
