// Tables as a terminal shows them: a cell holding CJK text, combining
// marks, control characters or bytes that are not UTF-8 never shifts the
// columns after it, and nothing in a cell reaches the terminal raw.
#include "tests/support/run_program.h"
#include "tests/support/test_home.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace dravix::test {
namespace {

// The terminal cells of one line: each entry is the byte offset of the
// character that starts in that cell, or -1 for the right half of a wide
// character. Widths follow the classic East Asian wide ranges and the
// combining diacritics, independently of the program's own measure.
std::vector<long> Cells(const std::string& line) {
  std::vector<long> cells;
  for (size_t i = 0; i < line.size();) {
    const auto b = static_cast<unsigned char>(line[i]);
    const size_t n = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
    long cp = n == 1 ? b : b & (0x7F >> n);
    for (size_t k = 1; k < n && i + k < line.size(); ++k) cp = (cp << 6) | (line[i + k] & 0x3F);
    const bool combining = cp >= 0x300 && cp <= 0x36F;
    const bool wide = (cp >= 0x1100 && cp <= 0x115F) || (cp >= 0x2E80 && cp <= 0xA4CF && cp != 0x303F) ||
                      (cp >= 0xAC00 && cp <= 0xD7A3) || (cp >= 0xF900 && cp <= 0xFAFF) ||
                      (cp >= 0xFE30 && cp <= 0xFE6F) || (cp >= 0xFF00 && cp <= 0xFF60) ||
                      (cp >= 0xFFE0 && cp <= 0xFFE6);
    if (!combining) cells.push_back(static_cast<long>(i));
    if (wide) cells.push_back(-1);
    i += n;
  }
  return cells;
}

// Checks that every column of a table starts at the cell where its
// heading starts, on every row: two blanks before it and a character that
// begins there. Headings are ASCII words, cells are never empty.
void ExpectAligned(const std::string& table, size_t rows) {
  const std::vector<std::string> lines = Lines(table);
  ASSERT_EQ(lines.size(), rows + 2) << table;
  std::vector<size_t> starts;
  const std::string& head = lines[0];
  for (size_t i = 1; i < head.size(); ++i)
    if (head[i] != ' ' && head[i - 1] == ' ' && i >= 2 && head[i - 2] == ' ') starts.push_back(i);
  ASSERT_FALSE(starts.empty()) << head;
  for (size_t r = 1; r < lines.size(); ++r) {
    const std::vector<long> cells = Cells(lines[r]);
    for (size_t s : starts) {
      ASSERT_LT(s, cells.size()) << "row " << r << " ends before column at cell " << s << ":\n" << table;
      const bool gap = cells[s - 1] >= 0 && lines[r][static_cast<size_t>(cells[s - 1])] == ' ' && cells[s - 2] >= 0 &&
                       lines[r][static_cast<size_t>(cells[s - 2])] == ' ';
      const bool begins = cells[s] >= 0 && lines[r][static_cast<size_t>(cells[s])] != ' ';
      EXPECT_TRUE(gap && begins) << "row " << r << ", column at cell " << s << ":\n" << table;
    }
  }
  for (char c : table) EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 || c == '\n') << "raw byte " << int(c);
}

class TerminalTables : public TestHome {
 protected:
  ProgramOptions Env() const {
    ProgramOptions o;
    o.env = {{"ODBCINI", Path("odbc.ini")}, {"LC_ALL", "C"}};
    return o;
  }
};

TEST_F(TerminalTables, CjkCombiningAndControlCharactersKeepEveryColumnInPlace) {
  // The default account's privilege and description are CHT text.
  const char* names[] = {"\xe7\x9b\xa3\xe6\x8e\xa7",                                              // 監控
                         "x\ty", "a\x1b[31mb\nc\xff\x7f", "e\xcc\x81x", "\xef\xbc\xa1\xc2\x85"};  // Ａ and C1 NEL
  for (const char* name : names) {
    ProgramOptions o = Env();
    o.input = "\n";
    const ProgramResult r = RunDravix(
        {"users", "add", name, "-d", std::string(name) + " \xe8\xaa\xaa", "--password-stdin", "--home", home()}, o);
    ASSERT_EQ(r.status, 0) << r.err;
  }
  const ProgramResult list = RunDravix({"users", "list", "--home", home()}, Env());
  ASSERT_EQ(list.status, 0) << list.err;
  ExpectAligned(list.out, 6);
  for (const char* shown : {"x\\ty", "a\\x1b[31mb\\nc\\xff\\x7f", "\\u0085"})
    EXPECT_NE(list.out.find(shown), std::string::npos) << shown << " in\n" << list.out;

  // probe: a CJK file name beside an ASCII one.
  const std::string cjk = Path("\xe5\xbe\x8c\xe9\x96\x80\xe6\x94\x9d\xe5\xbd\xb1\xe6\xa9\x9f.dat");  // 後門攝影機
  for (const std::string& f : {cjk, Path("cam01.dat")}) {
    const ProgramResult w = RunDravix({"write-test-recording", f, "--seconds", "1", "--noise"}, Env());
    ASSERT_EQ(w.status, 0) << w.err;
  }
  const ProgramResult probe = RunDravix({"probe", cjk, Path("cam01.dat")}, Env());
  ASSERT_EQ(probe.status, 0) << probe.err;
  ExpectAligned(probe.out, 2);

  // The ids of the language database, CHT texts of every width.
  ASSERT_EQ(RunDravix({"lang", "install", "--home", home()}, Env()).status, 0);
  const ProgramResult ids =
      RunDravix({"lang", "ids", "--grep", "\xe6\x94\x9d\xe5\xbd\xb1\xe6\xa9\x9f", "--home", home()}, Env());  // 攝影機
  ASSERT_EQ(ids.status, 0) << ids.err;
  EXPECT_NE(ids.out.find("4503  "), std::string::npos) << ids.out;
  ExpectAligned(ids.out, static_cast<size_t>(std::count(ids.out.begin(), ids.out.end(), '\n') - 2));
}

}  // namespace
}  // namespace dravix::test
