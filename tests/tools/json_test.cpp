// Every data command's --json says what its text says: the JSON parses,
// and each column of a table (or name of a "name  value" listing) is a key
// of the matching JSON objects, written the same way, while the JSON adds
// only the raw forms listed for it.
#include "tests/support/program_home.h"
#include "tests/tools/media_tool_util.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cctype>
#include <set>
#include <sstream>

namespace dravix::test {
namespace {

using nlohmann::json;

// A column or listing name as a JSON key: a note in parentheses left out,
// lower case, blanks as '_'.
std::string KeyOf(std::string name) {
  const size_t paren = name.find('(');
  if (paren != std::string::npos) name.erase(paren);
  while (!name.empty() && name.back() == ' ') name.pop_back();
  for (char& c : name) c = c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return name;
}

// The cells of a text line split at runs of two or more blanks.
std::vector<std::string> Cells(const std::string& line) {
  std::vector<std::string> cells;
  size_t at = 0;
  while (at < line.size()) {
    size_t gap = line.find("  ", at);
    cells.push_back(line.substr(at, gap - at));
    if (gap == std::string::npos) break;
    while (gap < line.size() && line[gap] == ' ') ++gap;
    at = gap;
  }
  return cells;
}

bool IsRule(const std::string& line) {
  return !line.empty() && line.find_first_not_of("- ") == std::string::npos && line[0] == '-';
}

// The keys of the `n`th table of `text` (a header line above a rule of
// dashes), or of the first "name  value" listing when n < 0.
std::set<std::string> TextKeys(const std::string& text, int n) {
  const std::vector<std::string> lines = Lines(text);
  std::set<std::string> keys;
  if (n < 0) {
    for (const std::string& line : lines) {
      if (line.empty()) break;
      keys.insert(KeyOf(Cells(line).front()));
    }
    return keys;
  }
  for (size_t i = 0; i + 1 < lines.size(); ++i) {
    if (!IsRule(lines[i + 1]) || n-- > 0) continue;
    for (const std::string& cell : Cells(lines[i])) keys.insert(KeyOf(cell));
    return keys;
  }
  ADD_FAILURE() << "no table in:\n" << text;
  return keys;
}

// The first column of the first table: for commands whose JSON is an
// object keyed by it.
std::set<std::string> FirstColumn(const std::string& text) {
  const std::vector<std::string> lines = Lines(text);
  std::set<std::string> values;
  for (size_t i = 2; i < lines.size(); ++i) values.insert(Cells(lines[i]).front());
  return values;
}

using JsonOutput = ProgramHome;

TEST_F(JsonOutput, EveryDataCommandsJsonParsesAndHasTheColumnsOfItsText) {
  // A folder with something in every file the commands read.
  ASSERT_EQ(Run({"lang", "install"}).status, 0);
  WriteTestRecording(Path("cam01.dat"));
  ASSERT_EQ(Run({"users", "add", "op", "-p", "2", "--password-stdin"}, "pw\n").status, 0);
  ASSERT_EQ(Run({"schedule", "add-task", "0", "08:00", "12:00"}).status, 0);
  ASSERT_EQ(Run({"schedule", "enable", "0"}).status, 0);
  ASSERT_EQ(Run({"log", "write", "Live.log", "a line"}).status, 0);
  WriteFile("PTZ.ini", "[COMMON]\r\nNUMBERS=1\r\n[PTZ1]\r\nname=Dome\r\nCodeLength=7\r\nPanLeft=FF010004200025\r\n");
  const pid_t holder = StartDravix({"files", "add", "/rec/CAM01.zmf", "--hold", "30"}, options_);
  for (int i = 0; i < 200 && Run({"files", "has", "/rec/CAM01.zmf"}).status != 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  struct Holder {
    pid_t pid;
    ~Holder() {
      ::kill(pid, SIGTERM);
      WaitProgram(pid);
    }
  } stop{holder};

  constexpr int kPairs = -1;   // the "name  value" listing at the top
  constexpr int kMap = -2;     // JSON object keyed by the table's first column
  constexpr int kNoText = -3;  // the text is no table: the JSON only parses
  const struct Case {
    std::vector<std::string> args;
    int table;                     // which table of the text, or one of the above
    std::string rows;              // JSON pointer to the objects (an array of them, or one)
    std::set<std::string> extras;  // keys the JSON adds to the columns
  } cases[] = {
      {{"disk"}, kPairs, "", {}},
      {{"time", "now"}, kPairs, "", {}},
      {{"time", "zm", "2008-03-15 12:34:56"}, kPairs, "", {}},
      {{"time", "diff", "2008-03-15 12:00:00", "2008-03-15 13:00:00"}, kPairs, "", {}},
      {{"time", "add", "2008-03-15 12:00:00", "90"}, kPairs, "", {}},
      {{"time", "days", "2", "2008"}, kPairs, "", {}},
      {{"time", "window", "2008-03-15 22:00:00", "2008-03-15 23:00:00", "2008-03-16 02:00:00"}, kPairs, "", {}},
      {{"time", "intersect", "2008-03-15 12:00:00", "2008-03-15 13:00:00", "2008-03-15 12:30:00",
        "2008-03-15 14:00:00"},
       kPairs,
       "",
       {}},
      {{"switches"}, 0, "", {}},
      {{"lang"}, kPairs, "", {}},
      {{"lang", "7109"}, kNoText, "", {}},
      {{"config", "show", "Camera/Camera1/DsRecord"}, kMap, "", {}},
      {{"config", "get", "General/SiteName"}, kNoText, "", {}},
      {{"config", "set", "General/WebPort", "8080"}, kNoText, "", {}},
      {{"users", "list"}, 0, "", {}},
      {{"schedule", "show"}, 0, "/cameras", {}},
      {{"schedule", "show", "0"}, 0, "/week", {}},
      {{"schedule", "show", "0"}, 1, "/tasks_today", {}},
      {{"schedule", "post", "0", "--at", "2008-03-15 07:00:00"}, 0, "/events", {}},
      {{"log", "tail", "Live.log"}, kNoText, "", {}},
      {{"probe", Path("cam01.dat")}, 0, "", {"end", "start_filetime", "end_filetime", "length_100ns", "size_code"}},
      {{"check", "--dry-run", Path("cam01.dat")}, kNoText, "", {}},
      {{"files"}, 0, "", {}},
      {{"timeline", home()}, 0, "/days", {}},
      {{"files", "has", "/rec/CAM01.zmf"}, kNoText, "", {}},
      {{"ptz", "models", "--dir", home()}, 0, "", {}},
      {{"cards"}, kPairs, "", {"cards", "ports"}},
      {{"cards"}, 0, "/cards", {}},
      {{"cards"}, 1, "/ports", {}},
      {{"devices"}, kPairs, "", {"ports", "chips", "audio", "refreshed"}},
      {{"devices"}, 0, "/ports", {}},
      {{"migrate"}, 0, "", {"kept_defaults"}},
  };
  for (const Case& c : cases) {
    std::string name;
    for (const std::string& a : c.args) name += a + " ";
    SCOPED_TRACE(name + "(table " + std::to_string(c.table) + " " + c.rows + ")");
    const ProgramResult text = Run(c.args);
    std::vector<std::string> args = c.args;
    args.push_back("--json");
    const ProgramResult out = Run(args);
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(out.status, 0) << out.err;
    const json j = json::parse(out.out, nullptr, false);
    EXPECT_FALSE(j.is_discarded()) << out.out;
    if (text.status != 0 || j.is_discarded()) continue;
    if (c.table == kNoText) continue;
    if (c.table == kMap) {
      std::set<std::string> keys;
      for (const auto& [key, value] : j.items()) keys.insert(key);
      EXPECT_EQ(keys, FirstColumn(text.out)) << text.out;
      continue;
    }
    const std::set<std::string> columns = TextKeys(text.out, c.table);
    if (!j.contains(json::json_pointer(c.rows))) {
      ADD_FAILURE() << "no " << c.rows << " in " << out.out;
      continue;
    }
    const json& at = j.at(json::json_pointer(c.rows));
    std::vector<json> rows;
    if (at.is_array())
      rows.assign(at.begin(), at.end());
    else
      rows.push_back(at);
    EXPECT_FALSE(rows.empty()) << out.out;
    for (const json& row : rows) {
      std::set<std::string> keys;
      for (const auto& [key, value] : row.items()) keys.insert(key);
      for (const std::string& column : columns) EXPECT_TRUE(keys.count(column)) << "no key " << column << "\n" << row;
      for (const std::string& key : keys)
        EXPECT_TRUE(columns.count(key) || c.extras.count(key)) << "key " << key << " is in no column\n" << text.out;
    }
  }
}

}  // namespace
}  // namespace dravix::test
