// A table of aligned columns for a terminal.
#ifndef ATSC_TV_TERMINAL_TABLE_H_
#define ATSC_TV_TERMINAL_TABLE_H_

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace apps::tv {

enum class Align { kLeft, kRight };

struct Column {
  const char* title;
  Align align;
};

class Table {
 public:
  explicit Table(std::vector<Column> columns);

  // Adds a row with one cell for each column. Makes the cells printable; an empty cell is shown as
  // "-".
  void add(const std::vector<std::string>& cells);

  // Writes the titles and the rows, each line after `indent` and cut to `width` if it is given.
  void print(std::ostream& out, const std::string& indent, std::optional<size_t> width) const;

 private:
  const std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;  // the first row holds the titles
};

}  // namespace apps::tv

#endif  // ATSC_TV_TERMINAL_TABLE_H_
