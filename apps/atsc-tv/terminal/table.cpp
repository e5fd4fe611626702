#include "terminal/table.h"

#include <algorithm>
#include <utility>

#include "terminal/text.h"

namespace apps::tv {
namespace {

constexpr const char* kGap = "  ";

}  // namespace

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {
  std::vector<std::string> titles;
  for (const Column& column : columns_) titles.push_back(column.title);
  rows_.push_back(std::move(titles));
}

void Table::add(const std::vector<std::string>& cells) {
  std::vector<std::string> row;
  for (const std::string& cell : cells) row.push_back(cell.empty() ? "-" : printable(cell));
  row.resize(columns_.size());
  rows_.push_back(std::move(row));
}

void Table::print(std::ostream& out, const std::string& indent, std::optional<size_t> width) const {
  std::vector<size_t> widths(columns_.size());
  for (const auto& row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], displayWidth(row[i]));
  }
  for (const auto& row : rows_) {
    std::string line = indent;
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - displayWidth(row[i]), ' ');
      if (i > 0) line += kGap;
      line += columns_[i].align == Align::kRight ? padding + row[i] : row[i] + padding;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << (width ? cut(line, *width) : line) << '\n';
  }
}

}  // namespace apps::tv
