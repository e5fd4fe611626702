// The lookups of a synchronisation: the services that have a row, and the rows that an update
// changes.
#ifndef ATSC_ATSC_SERVICE_DB_CHANNEL_LOOKUP_H_
#define ATSC_ATSC_SERVICE_DB_CHANNEL_LOOKUP_H_

#include <SQLiteCpp/Database.h>
#include <aisrv.h>
#include <atsc/atsc_service.h>
#include <sqlite3.h>

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "atsc_service_db_channel_row.h"

namespace atsc {

struct SameNumber;

// A service of the middleware's list.
struct ListedService {
  const AISRV_service_info* info;
  ServiceTexts texts;
  std::optional<int> index;  // of the row that the lookup finds
  SameNumber* sameNumber;    // its number
  ListedService* next;       // with the same number and no row yet

  // Returns whether the service has a row. A row whose index means "not found" is replaced.
  bool isUpdate() const { return index.value_or(ATSC_CHANNEL_NOT_FOUND) != ATSC_CHANNEL_NOT_FOUND; }
};

// The rows and the services with one major number, minor number and frequency.
struct SameNumber {
  // Keys of the rows that an update changes, including those that this run has inserted.
  std::vector<int64_t> rows;
  ListedService* unanswered = nullptr;        // the services without a row yet
  const ListedService* last = nullptr;        // the last service
  const ListedService* lastUpdate = nullptr;  // the last service that updates the rows
};

// The table as it was before the run. Finds in one pass over the table, for all services, the rows
// that ATSC_Service_db_findChannelIndex() would find, and the rows that an update changes.
class CommittedRows {
 public:
  // Looks up the services, which must stay where they are. Compares the rows with those that the
  // services get, if `compared`; else all rows differ.
  void read(SQLite::Database& database, const std::string& table,
            std::vector<ListedService>& services, bool compared);

  // Keys of the rows that no service updates, of earlier runs.
  const std::vector<int64_t>& strays() const { return strays_; }

  // Returns whether the run changes more than update_time.
  bool differ() const { return differ_; }

 private:
  void addServices(std::vector<ListedService>& services);
  // Takes in the current row of read()'s query.
  void addRow(sqlite3_stmt* row);
  // Returns the rows and services with the number of the row, null when no service has it.
  SameNumber* sameNumber(sqlite3_stmt* row);

  std::unordered_map<uint64_t, SameNumber> numbers_;
  const ListedService* expected_ = nullptr;  // the service after that of the last row
  const ListedService* end_ = nullptr;
  std::vector<int64_t> strays_;
  bool differ_ = false;
};

}  // namespace atsc

#endif  // ATSC_ATSC_SERVICE_DB_CHANNEL_LOOKUP_H_
