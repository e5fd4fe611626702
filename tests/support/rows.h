// Content of databases.
#ifndef ATSC_TESTS_SUPPORT_ROWS_H_
#define ATSC_TESTS_SUPPORT_ROWS_H_

#include <SQLiteCpp/SQLiteCpp.h>

#include <filesystem>
#include <string>
#include <vector>

// Opens a database and waits for its writers.
SQLite::Database openDatabase(const std::filesystem::path& path);

// Returns all rows of a query, with columns joined by '|'.
std::vector<std::string> rowsOf(SQLite::Statement& query);
std::vector<std::string> rowsOf(const std::filesystem::path& database, const std::string& sql);

// Returns the first column of the first row.
std::string valueOf(const std::filesystem::path& database, const std::string& sql);

// Returns "ok" for a database that is not damaged.
std::string integrityOf(const std::filesystem::path& database);

// Executes statements. Creates the file when there is none.
void execute(const std::filesystem::path& database, const std::string& sql);

#endif  // ATSC_TESTS_SUPPORT_ROWS_H_
