#include "tools/table.h"

#include <algorithm>

namespace dravix::cli {

void Table::Print(std::ostream& out) const {
  std::vector<size_t> width(headers_.size(), 0);
  auto measure = [&](const std::vector<std::string>& row) {
    for (size_t i = 0; i < row.size() && i < width.size(); ++i) width[i] = std::max(width[i], row[i].size());
  };
  measure(headers_);
  for (const auto& r : rows_) measure(r);
  auto line = [&](const std::vector<std::string>& row) {
    std::string text;
    for (size_t i = 0; i < width.size(); ++i) {
      const std::string cell = i < row.size() ? row[i] : std::string();
      text += cell;
      if (i + 1 < width.size()) text += std::string(width[i] - cell.size() + 2, ' ');
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    out << text << '\n';
  };
  line(headers_);
  std::vector<std::string> rule;
  for (size_t w : width) rule.emplace_back(w, '-');
  line(rule);
  for (const auto& r : rows_) line(r);
}

void PrintPairs(std::ostream& out, const std::vector<std::pair<std::string, std::string>>& pairs) {
  size_t w = 0;
  for (const auto& p : pairs) w = std::max(w, p.first.size());
  for (const auto& [k, v] : pairs) out << k << std::string(w - k.size() + 2, ' ') << v << '\n';
}

}  // namespace dravix::cli
