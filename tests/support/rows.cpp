#include "rows.h"

namespace {

constexpr int kBusyTimeoutMs = 20000;

}  // namespace

SQLite::Database openDatabase(const std::filesystem::path& path) {
  return SQLite::Database(path.string(), SQLite::OPEN_READONLY, kBusyTimeoutMs);
}

std::vector<std::string> rowsOf(SQLite::Statement& query) {
  std::vector<std::string> rows;
  while (query.executeStep()) {
    std::string& row = rows.emplace_back();
    for (int i = 0; i < query.getColumnCount(); ++i) {
      row += (i > 0 ? "|" : "") + query.getColumn(i).getString();
    }
  }
  return rows;
}

std::vector<std::string> rowsOf(const std::filesystem::path& database, const std::string& sql) {
  SQLite::Database file = openDatabase(database);
  SQLite::Statement query(file, sql);
  return rowsOf(query);
}

std::string valueOf(const std::filesystem::path& database, const std::string& sql) {
  return openDatabase(database).execAndGet(sql).getString();
}

std::string integrityOf(const std::filesystem::path& database) {
  return valueOf(database, "PRAGMA integrity_check");
}

void execute(const std::filesystem::path& database, const std::string& sql) {
  const int modes = SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE;
  SQLite::Database(database.string(), modes, kBusyTimeoutMs).exec(sql);
}
