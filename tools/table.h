// Plain-text tables for the terminal: columns padded to their widest cell,
// measured in terminal cells (a CJK character takes two), with control
// characters and bytes that are not UTF-8 shown escaped so that no cell can
// shift the columns after it.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace dravix::cli {

class Table {
 public:
  explicit Table(std::vector<std::string> headers) : headers_(std::move(headers)) {}
  void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  bool empty() const { return rows_.empty(); }
  void Print(std::ostream& out) const;

 private:
  std::vector<std::string> headers_;
  std::vector<std::vector<std::string>> rows_;
};

// Two-column "key  value" listing, for single records.
void PrintPairs(std::ostream& out, const std::vector<std::pair<std::string, std::string>>& pairs);

}  // namespace dravix::cli
