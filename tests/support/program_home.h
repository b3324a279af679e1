// A program folder for tests that run `dravix` in it, with an odbc.ini of
// the test's own (ODBCINI), so that registering the language databases
// touches nothing outside the test.
#pragma once

#include "tests/support/run_program.h"
#include "tests/support/test_home.h"

#include <string>
#include <vector>

namespace dravix::test {

class ProgramHome : public TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    odbc_ = MakeTempFolder("dravix-odbc-");
    options_.env = {{"ODBCINI", odbc_ + "odbc.ini"}};
  }
  void TearDown() override {
    RemoveTree(odbc_);
    TestHome::TearDown();
  }
  // Runs `dravix args... --home home()` with `input` on standard input.
  ProgramResult Run(std::vector<std::string> args, const std::string& input = "") {
    args.insert(args.end(), {"--home", home()});
    ProgramOptions o = options_;
    o.input = input;
    return RunDravix(args, o);
  }

  std::string odbc_;
  ProgramOptions options_;
};

}  // namespace dravix::test
