// The program's conventions, which every tools test relies on: exit
// statuses, --version, --home, predicates, interface languages and errors
// in plain words; help in one style for every command, with the manual page
// and the bash completion made from the same commands.
#include "tests/support/program_home.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace dravix::test {
namespace {

TEST(Program, ExitStatusSaysSuccessFailureOrUsage) {
  EXPECT_EQ(RunDravix({"time", "days", "2008", "2"}).status, 0);
  const ProgramResult usage = RunDravix({"no-such-command"});
  EXPECT_EQ(usage.status, 2) << usage.err;
  EXPECT_FALSE(usage.err.empty());
  EXPECT_EQ(usage.err.rfind("dravix: ", 0), 0u) << usage.err;
  const ProgramResult failure = RunDravix({"probe", "/nonexistent/cam01.dat"});
  EXPECT_EQ(failure.status, 1) << failure.err;
}

TEST(Program, VersionNamesTheProgramAndTheLibrariesItWasBuiltWith) {
  const ProgramResult r = RunDravix({"--version"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.rfind("dravix " DRAVIX_VERSION "\n", 0), 0u) << r.out;
  for (const char* library :
       {"libavformat", "libavcodec", "libavutil", "libswscale", "pugixml", "unixODBC", "CLI11", "nlohmann_json"})
    EXPECT_NE(r.out.find(std::string("\n  ") + library + " "), std::string::npos) << library << "\n" << r.out;
  // Versions, not placeholders.
  EXPECT_EQ(r.out.find("did not say"), std::string::npos) << r.out;
}

class Conventions : public ProgramHome {
 protected:
  // Runs `dravix args...` as given: the cases name their own --home.
  ProgramResult Run(const std::vector<std::string>& args, const std::string& input = "") {
    ProgramOptions o = options_;
    o.input = input;
    return RunDravix(args, o);
  }
};

// A mistyped --home is wrong usage that names the folder, and creates
// nothing: only --create, on the commands that set a folder up, makes it.
TEST_F(Conventions, AMissingHomeIsWrongUsageAndNothingIsMade) {
  const std::string missing = Path("no-such/home");
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{"users", "list"},
                                             {"config", "show"},
                                             {"config", "set", "General/WebPort", "81"},
                                             {"schedule", "show"},
                                             {"disk"},
                                             {"log", "write", "Live.log", "x"},
                                             {"users", "add", "op", "--password-stdin"}}) {
    SCOPED_TRACE(args.front() + " " + args.back());
    std::vector<std::string> withHome = args;
    withHome.insert(withHome.end(), {"--home", missing});
    const ProgramResult r = Run(withHome, "pw\n");
    EXPECT_EQ(r.status, 2) << r.err;
    EXPECT_NE(r.err.find(missing + ": no such folder"), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(Path("no-such"))) << "created by " << args[0];
  }
  WriteFile("plain-file", "x");
  const ProgramResult file = Run({"disk", "--home", Path("plain-file")});
  EXPECT_EQ(file.status, 2);
  EXPECT_NE(file.err.find("not a folder"), std::string::npos) << file.err;
  // A read-only command offers no --create.
  EXPECT_EQ(Run({"users", "list", "--create", "--home", missing}).status, 2);
  EXPECT_FALSE(std::filesystem::exists(Path("no-such")));
  const ProgramResult made = Run({"config", "set", "General/WebPort", "81", "--create", "--home", missing});
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_TRUE(std::filesystem::is_regular_file(missing + "/DVROPTION.XML"));
}

// Predicates answer with their exit status and on standard output; a
// predicate that cannot answer prints nothing there and says why.
TEST_F(Conventions, PredicatesAnswerInTheirExitStatus) {
  ASSERT_EQ(Run({"users", "add", "op", "--password-stdin", "--home", home()}, "right\n").status, 0);
  const struct {
    std::vector<std::string> args;
    std::string input;
    int status;
    std::string out;  // expected in standard output ("" = empty)
  } cases[] = {
      {{"users", "check", "op", "--password-stdin"}, "right\n", 0, "log-in accepted"},
      {{"users", "check", "op", "--password-stdin"}, "wrong\n", 1, "log-in refused"},
      {{"users", "check", "nobody", "--password-stdin"}, "right\n", 1, "log-in refused"},
      {{"users", "check", "op", "--password-stdin", "--json"}, "wrong\n", 1, "\"accepted\": false"},
      {{"files", "has", "/rec/none.zmf"}, "", 1, "0\n"},
      {{"files", "has", "/rec/none.zmf", "--json"}, "", 1, "\"held\": false"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = c.args;
    args.insert(args.end(), {"--home", home()});
    SCOPED_TRACE(args[0] + " " + args[1] + " " + c.input);
    const ProgramResult r = Run(args, c.input);
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_NE(r.out.find(c.out), std::string::npos) << r.out;
  }
  // Held while another process holds it.
  const pid_t holder = StartDravix({"files", "add", "/rec/cam.zmf", "--hold", "30", "--home", home()}, options_);
  ProgramResult held;
  for (int i = 0; i < 200; ++i) {
    held = Run({"files", "has", "D:\\other\\cam.zmf", "--home", home()});
    if (held.status == 0) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ::kill(holder, SIGTERM);
  WaitProgram(holder);
  EXPECT_EQ(held.status, 0) << held.err;
  EXPECT_EQ(held.out, "1\n");
  EXPECT_EQ(Run({"files", "has", "/rec/cam.zmf", "--home", home()}).status, 1);  // not once the holder is gone
  // Accounts that cannot be read: no answer, the reason on stderr.
  std::filesystem::remove(Path("User.zmi"));
  std::filesystem::create_directory(Path("User.zmi"));
  const ProgramResult cannot = Run({"users", "check", "op", "--password-stdin", "--home", home()}, "right\n");
  EXPECT_EQ(cannot.status, 1);
  EXPECT_EQ(cannot.out, "");
  EXPECT_NE(cannot.err.find("User.zmi"), std::string::npos) << cannot.err;
}

// Privilege names in English and in the language of the interface texts,
// case ignored, whatever table is current; a wrong one lists them all.
TEST_F(Conventions, PrivilegeNamesInEnglishOrTheChosenLanguage) {
  const struct {
    std::string privilege;
    std::vector<std::string> lang;  // extra arguments
    int status;
    std::string level;
  } cases[] = {
      {"Operator", {}, 0, "2"},                                             // English with CHT current
      {"oPERATOR", {}, 0, "2"},                                             // case ignored
      {"\xe6\x93\x8d\xe4\xbd\x9c\xe5\x93\xa1", {}, 0, "2"},                 // CHT
      {"\xe6\x93\x8d\xe4\xbd\x9c\xe5\x91\x98", {}, 2, ""},                  // CHS, not current
      {"\xe6\x93\x8d\xe4\xbd\x9c\xe5\x91\x98", {"--lang", "chs"}, 0, "2"},  // CHS chosen
      {"guest", {"--lang", "CHS"}, 0, "3"},
      {"boss", {}, 2, ""},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.privilege);
    const std::string name = "user" + std::to_string(n++);
    std::vector<std::string> args = {"users", "add", name, "-p", c.privilege, "--password-stdin", "--home", home()};
    args.insert(args.end(), c.lang.begin(), c.lang.end());
    const ProgramResult r = Run(args, "pw\n");
    EXPECT_EQ(r.status, c.status) << r.err;
    if (c.status == 0) {
      EXPECT_NE(r.out.find("(privilege " + c.level + ")"), std::string::npos) << r.out;
    }
  }
  const ProgramResult wrong = Run({"users", "add", "x", "-p", "boss", "--password-stdin", "--home", home()}, "pw\n");
  for (const char* name : {"Administrator", "Supervisor", "Operator", "Guest", "\xe8\xa8\xaa\xe5\xae\xa2"})
    EXPECT_NE(wrong.err.find(name), std::string::npos) << name << "\n" << wrong.err;
  // The listing follows --lang; an unknown code lists the known ones.
  const ProgramResult eng = Run({"users", "list", "--lang", "ENG", "--home", home()});
  EXPECT_NE(eng.out.find("Administrator"), std::string::npos) << eng.out;
  const ProgramResult bad = Run({"users", "list", "--lang", "XX", "--home", home()});
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("ENG, CHT, CHS, JPN"), std::string::npos) << bad.err;
}

// Errors say what is wrong in plain words, with the byte, and the result
// code only after it.
TEST_F(Conventions, ErrorsSayTheCauseInPlainWords) {
  WriteFile("noise.dat", std::string(5000, 'x'));
  WriteFile("empty.dat", "");
  const struct {
    std::string file;
    std::string says;
  } cases[] = {
      {Path("missing.dat"), "no such file"},
      {Path("noise.dat"), "not a recording: bad magic at byte 0 (\"ZMFF\" expected) [E_UNEXPECTED 0x8000FFFF]"},
      {Path("empty.dat"), "not a recording: the header at byte 0 is cut off: the file ends at byte 0 [E_FAIL"},
  };
  for (const auto& c : cases) {
    const ProgramResult probe = Run({"probe", c.file});
    EXPECT_EQ(probe.status, 1);
    EXPECT_NE(probe.out.find(c.says), std::string::npos) << probe.out;
    const ProgramResult cut =
        Run({"cut", c.file, Path("clip.dat"), "--from", "2008-03-15 12:00:00", "--to", "2008-03-15 12:00:05"});
    EXPECT_EQ(cut.status, 1);
    EXPECT_NE(cut.err.find(c.says), std::string::npos) << cut.err;
  }
  // A parse error names the program and the command whose help explains it.
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"users", "add"}, {"users", "add", "x", "--no-such-option"}, {"cut", "a", "b", "--from"}}) {
    const ProgramResult r = RunDravix(args);
    EXPECT_EQ(r.status, 2) << r.err;
    EXPECT_EQ(r.err.rfind("dravix: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("`dravix " + args[0] + (args[0] == "users" ? " add" : "") + " --help`"), std::string::npos)
        << r.err;
  }
}

struct Command {
  std::vector<std::string> path;  // after "dravix"
  std::string help;
  std::vector<std::string> subcommands;
};

// Every command, found by following the "Commands:" lists of the help.
void Walk(std::vector<std::string> path, std::vector<Command>* all) {
  std::vector<std::string> args = path;
  args.push_back("--help");
  const ProgramResult r = RunDravix(args);
  EXPECT_EQ(r.status, 0) << r.err;
  Command c{path, r.out, {}};
  bool inCommands = false;
  for (const std::string& line : Lines(r.out)) {
    if (line == "Commands:")
      inCommands = true;
    else if (line.empty())
      inCommands = false;
    else if (inCommands && line.size() > 2 && line[2] != ' ')
      c.subcommands.push_back(line.substr(2, line.find(' ', 2) - 2));
  }
  all->push_back(c);
  for (const std::string& sub : c.subcommands) {
    std::vector<std::string> next = path;
    next.push_back(sub);
    Walk(next, all);
  }
}

std::string Joined(const std::vector<std::string>& path) {
  std::string s = "dravix";
  for (const std::string& p : path) s += " " + p;
  return s;
}

bool StartsInSentenceCase(const std::string& text) {
  return !text.empty() && !std::islower(static_cast<unsigned char>(text[0]));
}

// Whether a value name is one of the parser's type names ("INT",
// "UINT:INT in [1 - 100]", "NUMBER:...") rather than a name of its own.
bool IsParserTypeName(const std::string& value) {
  if (value.find("NUMBER:") != std::string::npos || value.find("in [") != std::string::npos) return true;
  std::string word;
  for (size_t i = 0; i <= value.size(); ++i) {
    if (i < value.size() && std::isalnum(static_cast<unsigned char>(value[i]))) {
      word += value[i];
      continue;
    }
    for (const char* type : {"INT", "UINT", "FLOAT", "TEXT", "BOOLEAN", "ENUM"})
      if (word == type) return true;
    word.clear();
  }
  return false;
}

TEST(Program, EveryCommandsHelpKeepsOneStyle) {
  std::vector<Command> commands;
  Walk({}, &commands);
  ASSERT_GT(commands.size(), 40u);
  for (const Command& c : commands) {
    SCOPED_TRACE(Joined(c.path));
    const std::vector<std::string> lines = Lines(c.help);
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(StartsInSentenceCase(lines[0])) << lines[0];
    EXPECT_LE(lines[0].size(), 100u) << lines[0];
    std::string section;
    for (size_t i = 1; i < lines.size(); ++i) {
      const std::string& line = lines[i];
      if (line.empty() || line.back() == ':') {
        section = line;
        continue;
      }
      if (section != "Arguments:" && section != "Options:" && section != "Commands:") continue;
      if (line.rfind(std::string(30, ' '), 0) == 0) continue;  // a wrapped description
      // "  --name VALUE      Description": the value is named, never typed
      // (its own name in capitals is fine: --text TEXT), and every
      // argument, option and command is described.
      std::istringstream name(line.substr(0, std::min<size_t>(line.size(), 30)));
      std::string names, value;
      name >> names >> value;
      const size_t dashes = names.find("--");
      std::string own = dashes == std::string::npos ? names : names.substr(dashes + 2);
      for (char& ch : own) ch = ch == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
      EXPECT_TRUE(value == own || !IsParserTypeName(value)) << line;
      std::string desc = line.size() > 30 ? line.substr(30) : "";
      if (desc.empty() && i + 1 < lines.size()) desc = lines[i + 1].substr(std::min<size_t>(lines[i + 1].size(), 30));
      EXPECT_TRUE(StartsInSentenceCase(desc) && desc.find_first_not_of(' ') == 0)
          << "undescribed or lower case: " << line;
    }
    EXPECT_EQ(c.help.find("in ["), std::string::npos) << c.help;
  }
  // Examples where a command is hard to get right the first time, each
  // line of them running that very command; a footer stays with its own.
  for (const char* with : {"dravix cut", "dravix config set", "dravix users add", "dravix schedule add-task"}) {
    SCOPED_TRACE(with);
    bool found = false;
    for (const Command& c : commands) {
      if (Joined(c.path) != with) continue;
      found = true;
      const size_t at = c.help.find("\nExamples:\n");
      ASSERT_NE(at, std::string::npos) << c.help;
      EXPECT_NE(c.help.find("\n  " + std::string(with) + " ", at), std::string::npos) << c.help;
    }
    EXPECT_TRUE(found);
  }
  for (const Command& c : commands) {
    if (Joined(c.path) == "dravix config reset") {
      EXPECT_EQ(c.help.find("PATH is the element path"), std::string::npos);
    }
  }

  // The manual page and the completion come from the same commands.
  const ProgramResult man = RunDravix({"--man-page", "9.9"});
  ASSERT_EQ(man.status, 0) << man.err;
  const std::string completion = RunDravix({"--completion", "bash"}).out;
  const std::string script = testing::TempDir() + "dravix-completion.bash";
  FILE* f = std::fopen(script.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fwrite(completion.data(), 1, completion.size(), f);
  std::fclose(f);
  for (const Command& c : commands) {
    if (c.path.empty()) continue;
    SCOPED_TRACE(Joined(c.path));
    std::string usage = "\n.SS \"\\fB";
    for (const std::string& p : c.path) usage += (p == c.path.front() ? "dravix " : " ") + p;
    for (size_t at = usage.find('-'); at != std::string::npos; at = usage.find('-', at + 2)) usage.insert(at, "\\");
    EXPECT_NE(man.out.find(usage + "\\fR"), std::string::npos);
    // Completing the last word of the command from its first letter offers it.
    std::string words = "dravix";
    for (size_t i = 0; i + 1 < c.path.size(); ++i) words += " " + c.path[i];
    const std::string offered = RunCommand(
        "bash -c 'source " + script + "; COMP_WORDS=(" + words + " " + c.path.back().substr(0, 1) +
        "); COMP_CWORD=" + std::to_string(c.path.size()) + "; _dravix; printf \"%s\\n\" \"${COMPREPLY[@]}\"'");
    EXPECT_NE(("\n" + offered).find("\n" + c.path.back() + "\n"), std::string::npos) << offered;
  }
  std::remove(script.c_str());
}

}  // namespace
}  // namespace dravix::test
