#include "guide/table_rows.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "common/text.h"
#include "guide/json_text.h"
#include "guide/service_file.h"

namespace web {
namespace {

constexpr size_t kLongestCell = 16 * 1024;
constexpr size_t kShownOfBlob = 64;
constexpr size_t kLongestAnswer = 1 << 20;

// "x'00ff'", as SQL writes it; of a long one the beginning.
std::string blobText(const SQLite::Column& column) {
  const auto* const bytes = static_cast<const unsigned char*>(column.getBlob());
  const auto size = static_cast<size_t>(column.getBytes());
  std::string text = "x'";
  for (size_t i = 0; i < std::min(size, kShownOfBlob); ++i) {
    std::array<char, 3> hex{};
    snprintf(hex.data(), hex.size(), "%02x", bytes[i]);
    text += hex.data();
  }
  if (size > kShownOfBlob) text += "…";
  return text + "' (" + std::to_string(size) + " bytes)";
}

std::string realText(double value) {
  std::array<char, 32> text{};
  snprintf(text.data(), text.size(), "%.17g", value);
  return text.data();
}

void writeCell(JsonText& json, const SQLite::Column& column) {
  if (column.isNull()) {
    json.raw("null");
  } else if (column.isInteger()) {
    json.number(column.getInt64());
  } else if (column.isFloat()) {
    json.text(realText(column.getDouble()));
  } else if (column.isBlob()) {
    json.text(blobText(column));
  } else {
    const char* const text = column.getText();
    const auto size = static_cast<size_t>(column.getBytes());
    json.text(apps::validUtf8({text, std::min(size, kLongestCell)}));
  }
}

}  // namespace

std::string tableRows(const std::string& path, const std::string& table, int64_t offset,
                      int64_t count) {
  JsonText json;
  const bool exists = stampOf(path).exists();
  if (!exists && table.empty()) return R"({"tables":[],"columns":[],"rows":[],"total":0})";
  if (!exists) throw std::invalid_argument("no table " + table);
  ServiceFile file(path);
  const std::vector<std::string> tables = file.tables();
  const std::string chosen = !table.empty() ? table : tables.empty() ? "" : tables[0];
  json.open('{').key("tables").open('[');
  for (const std::string& name : tables) json.text(apps::validUtf8(name));
  json.close(']').text("table", apps::validUtf8(chosen)).key("columns").open('[');
  if (chosen.empty()) {
    json.close(']').key("rows").raw("[]").number("total", 0).close('}');
    return json.take();
  }
  if (std::find(tables.begin(), tables.end(), chosen) == tables.end()) {
    throw std::invalid_argument("no table " + chosen);
  }
  for (const std::string& name : file.columnsOf(chosen)) json.text(apps::validUtf8(name));
  json.close(']').key("rows").open('[');
  file.readBriefly([&] {
    SQLite::Statement query(file.database(),
                            "SELECT * FROM " + quotedName(chosen) + " LIMIT ? OFFSET ?");
    query.bind(1, count);
    query.bind(2, offset);
    while (json.size() < kLongestAnswer && query.executeStep()) {
      json.open('[');
      for (int i = 0; i < query.getColumnCount(); ++i) writeCell(json, query.getColumn(i));
      json.close(']');
    }
  });
  int64_t total = 0;
  file.readBriefly([&] {
    total = file.database().execAndGet("SELECT count(*) FROM " + quotedName(chosen)).getInt64();
  });
  json.close(']').number("total", total).close('}');
  return json.take();
}

}  // namespace web
