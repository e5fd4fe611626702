// Expected content of the channel tables.
#ifndef ATSC_TESTS_SUPPORT_LINEUP_ROWS_H_
#define ATSC_TESTS_SUPPORT_LINEUP_ROWS_H_

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

// The columns of a channel row that depend on the broadcast.
struct Row {
  int64_t major;
  int64_t minor;
  std::string name;
  int64_t frequency;  // Hz
  int64_t tsid;
  int64_t sourceId;
  std::string serviceType;
  std::string tunerType;
  std::string audioPid;
  std::string videoPid;

  bool operator==(const Row& other) const;
};

std::ostream& operator<<(std::ostream& out, const Row& row);

// Returns the rows of a lineup's services that are not hidden, in channel order.
std::vector<Row> rowsOfLineup(const std::filesystem::path& lineup);

// Returns the rows of a channel table, in channel order.
std::vector<Row> rowsOfTable(const std::filesystem::path& database, const std::string& table);

// Returns all columns except `update_time` of all rows, and the result of "PRAGMA integrity_check".
std::string contentOfTable(const std::filesystem::path& database, const std::string& table);
std::string integrityOf(const std::filesystem::path& database);

#endif  // ATSC_TESTS_SUPPORT_LINEUP_ROWS_H_
