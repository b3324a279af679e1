// A new, empty program folder: the commands that need interface texts (the
// default account, the default names) read the language databases built
// beside the program, and copy none of them into the folder.
#include "tests/support/program_home.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace dravix::test {
namespace {

using FreshProgramFolder = ProgramHome;

TEST_F(FreshProgramFolder, AccountsAndSettingsWorkWithoutLanguageDatabasesInTheFolder) {
  struct Case {
    std::vector<std::string> args;
    std::string expected;  // a text only the language database can give
  } cases[] = {
      {{"users", "list"}, "Admin"},
      {{"config", "show", "General"}, "\xe7\x9b\xa3\xe6\x8e\xa7\xe7\xab\x99"},  // the CHT site name
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args[0] + " " + c.args[1]);
    const ProgramResult r = Run(c.args);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find(c.expected), std::string::npos) << r.out;
    EXPECT_EQ(r.err.find("Database Open Error"), std::string::npos) << r.err;
    for (const auto& e : std::filesystem::directory_iterator(home()))
      ADD_FAILURE() << "written into the program folder: " << e.path();
  }
}

}  // namespace
}  // namespace dravix::test
