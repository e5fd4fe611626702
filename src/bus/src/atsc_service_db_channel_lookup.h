// The lookups of a synchronisation: the services that have a row, and the rows that an update
// changes.
#ifndef ATSC_ATSC_SERVICE_DB_CHANNEL_LOOKUP_H_
#define ATSC_ATSC_SERVICE_DB_CHANNEL_LOOKUP_H_

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <aisrv.h>

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "atsc_service_db_channel_row.h"

namespace atsc {

// The rows with one major number, minor number and frequency.
struct SameNumber {
  std::vector<int64_t> rows;         // their keys, including those that this run has inserted
  bool stamped = false;              // whether a row has the update_time of this run, or none
  std::optional<size_t> lastUpdate;  // position of the service whose values the rows get
};

// The table as it was before the run. Finds in one pass over the table, for all services, the rows
// that ATSC_Service_db_findChannelIndex() would find, and the rows that an update changes.
class CommittedRows {
 public:
  // The answer of a lookup: the key of a row, no value before read() finds a row.
  using Answer = std::optional<int>;

  // Adds the lookup of a service. Returns where read() stores the answer.
  const Answer* add(const AISRV_service_info& service, const StreamTexts& streams);

  // Answers all lookups. `stamp` is the update_time of this run.
  void read(SQLite::Database& database, const std::string& table, uint32_t stamp);

  SameNumber& sameNumber(const AISRV_service_info& service);

  // Returns whether a row that no service writes has the update_time of this run, or none.
  bool hasStampedStray() const;

 private:
  // Answers the lookups that the current row of read()'s query matches.
  void answerLookups(const std::string& number, SQLite::Statement& row);

  std::unordered_map<std::string, Answer> answers_;
  std::unordered_map<std::string, SameNumber> sameNumber_;
  bool stampedStray_ = false;
  bool wanted_[2][2] = {};  // with an audio text, with a video text
};

}  // namespace atsc

#endif  // ATSC_ATSC_SERVICE_DB_CHANNEL_LOOKUP_H_
