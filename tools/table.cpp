#include "tools/table.h"

#include "tools/terminal_text.h"

#include <algorithm>

namespace dravix::cli {
namespace {

// `text` followed by blanks up to `cells` terminal cells.
std::string Padded(const std::string& text, size_t cells) {
  const size_t width = TerminalWidth(text);
  return width < cells ? text + std::string(cells - width, ' ') : text;
}

}  // namespace

void Table::Print(std::ostream& out) const {
  std::vector<std::vector<std::string>> shown;
  shown.reserve(rows_.size() + 1);
  shown.push_back(headers_);
  for (const auto& r : rows_) shown.push_back(r);
  for (auto& row : shown) {
    row.resize(headers_.size());
    for (auto& cell : row) cell = EscapeForTerminal(cell);
  }
  std::vector<size_t> width(headers_.size(), 0);
  for (const auto& row : shown)
    for (size_t i = 0; i < row.size(); ++i) width[i] = std::max(width[i], TerminalWidth(row[i]));
  auto line = [&](const std::vector<std::string>& row) {
    std::string text;
    for (size_t i = 0; i < row.size(); ++i) text += i + 1 < row.size() ? Padded(row[i], width[i] + 2) : row[i];
    while (!text.empty() && text.back() == ' ') text.pop_back();
    out << text << '\n';
  };
  line(shown[0]);
  std::vector<std::string> rule;
  for (size_t w : width) rule.emplace_back(w, '-');
  line(rule);
  for (size_t i = 1; i < shown.size(); ++i) line(shown[i]);
}

void PrintPairs(std::ostream& out, const std::vector<std::pair<std::string, std::string>>& pairs) {
  size_t w = 0;
  for (const auto& p : pairs) w = std::max(w, TerminalWidth(EscapeForTerminal(p.first)));
  for (const auto& [k, v] : pairs) out << Padded(EscapeForTerminal(k), w + 2) << EscapeForTerminal(v) << '\n';
}

}  // namespace dravix::cli
