#include "common/rows.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <filesystem>
#include <stdexcept>

#include "common/text.h"

namespace apps {
namespace {

// The longest wait for a file that the service has locked.
constexpr int kBusyTimeoutMs = 5000;

Json::Value columnValue(const SQLite::Column& column) {
  if (column.isNull()) return Json::Value();
  if (column.isInteger()) return Json::Value(static_cast<Json::Int64>(column.getInt64()));
  if (column.isFloat()) return Json::Value(column.getDouble());
  return Json::Value(validUtf8(column.getString()));
}

}  // namespace

Json::Value readRows(const std::string& database, const std::string& table,
                     const std::string& selection) {
  try {
    std::error_code error;
    if (!std::filesystem::exists(database, error) && !error) return Json::Value();
    SQLite::Database file(database, SQLite::OPEN_READONLY, kBusyTimeoutMs);
    if (!file.tableExists(table)) return Json::Value();
    SQLite::Statement query(file, "SELECT " + selection);
    Json::Value rows(Json::arrayValue);
    while (query.executeStep()) {
      Json::Value& row = rows.append(Json::Value(Json::objectValue));
      for (int i = 0; i < query.getColumnCount(); ++i) {
        row[query.getColumnName(i)] = columnValue(query.getColumn(i));
      }
    }
    return rows;
  } catch (const SQLite::Exception& error) {
    throw std::runtime_error(database + ": " + error.what());
  }
}

}  // namespace apps
