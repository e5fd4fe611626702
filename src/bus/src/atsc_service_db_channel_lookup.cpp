// The lookups of a synchronisation.
#include "atsc_service_db_channel_lookup.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <memory>

namespace atsc {

namespace {

// Columns of the query; those of the row follow.
constexpr int kRowKey = 0;
constexpr int kIndex = 1;
constexpr int kFirst = 2;

// All columns but update_time are read if `compared`, else those that the lookups need.
std::string rowsQuery(const std::string& table, bool compared) {
  std::string query = "SELECT rowid, ch_index";
  for (int i = 0; i < kChannelColumns; ++i) {
    bool read = compared && i != kUpdateTime;
    for (const int needed : {kMajor, kMinor, kFrequency, kSourceId, kAudioPid, kVideoPid}) {
      read = read || i == needed;
    }
    query.append(", ").append(read ? kColumnNames[static_cast<size_t>(i)] : "NULL");
  }
  return query + " FROM " + table;
}

// A column of the current row: SQLiteCpp would take longer to return it than SQLite to read it.
// Only one thread uses the connection, so the value needs no protection.
sqlite3_value* valueOf(sqlite3_stmt* row, int column) {
  return sqlite3_column_value(row, kFirst + column);
}

// Returns false when the value equals no integer: NULL, a text, a fraction.
bool readNumber(sqlite3_value* value, int64_t& number) {
  const int type = sqlite3_value_type(value);
  if (type != SQLITE_INTEGER && type != SQLITE_FLOAT) return false;
  number = sqlite3_value_int64(value);
  return type == SQLITE_INTEGER || static_cast<double>(number) == sqlite3_value_double(value);
}

bool equals(sqlite3_value* value, int64_t number) {
  return sqlite3_value_type(value) == SQLITE_INTEGER && sqlite3_value_int64(value) == number;
}

bool equals(sqlite3_value* value, std::string_view text) {
  if (sqlite3_value_type(value) != SQLITE_TEXT) return false;
  const auto* stored = reinterpret_cast<const char*>(sqlite3_value_text(value));
  return text == std::string_view(stored, static_cast<size_t>(sqlite3_value_bytes(value)));
}

uint64_t numberOf(uint16_t major, uint16_t minor, uint32_t frequency) {
  return uint64_t{major} << 48 | uint64_t{minor} << 32 | frequency;
}

// Whether the lookup of a service finds a row of its number. A lookup without a PID text matches
// any text of the row.
bool finds(const ListedService& service, sqlite3_stmt* row) {
  const StreamTexts& streams = service.texts.streams;
  int64_t source_id = 0;
  return readNumber(valueOf(row, kSourceId), source_id) &&
         source_id == static_cast<uint16_t>(service.info->source_id) &&
         (streams.audio_pid.empty() || equals(valueOf(row, kAudioPid), streams.audio_pid)) &&
         (streams.video_pid.empty() || equals(valueOf(row, kVideoPid), streams.video_pid));
}

// Whether an update of the row from the service would change more than update_time. Takes equal
// values of different types for different.
bool differs(sqlite3_stmt* row, const ListedService& service) {
  const ChannelRow wanted = channelRow(*service.info, service.texts, 0);
  for (int i = 0; i < kChannelColumns; ++i) {
    if (i == kUpdateTime) continue;
    const auto equal = [value = valueOf(row, i)](auto wanted) { return equals(value, wanted); };
    if (!std::visit(equal, wanted[static_cast<size_t>(i)])) return true;
  }
  return false;
}

}  // namespace

void CommittedRows::read(SQLite::Database& database, const std::string& table,
                         std::vector<ListedService>& services, bool compared) {
  addServices(services);
  sqlite3_stmt* statement = nullptr;
  int status = sqlite3_prepare_v2(database.getHandle(), rowsQuery(table, compared).c_str(), -1,
                                  &statement, nullptr);
  const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> rows(statement,
                                                                        sqlite3_finalize);
  if (status == SQLITE_OK) {
    while ((status = sqlite3_step(statement)) == SQLITE_ROW) addRow(statement);
  }
  if (status != SQLITE_DONE) throw SQLite::Exception(database.getHandle(), status);
  for (const ListedService& service : services) {
    if (service.isUpdate()) {
      service.sameNumber->lastUpdate = &service;
    } else {
      differ_ = true;
    }
  }
  for (auto& [number, same] : numbers_) {
    if (same.lastUpdate != nullptr) continue;
    strays_.insert(strays_.end(), same.rows.begin(), same.rows.end());
  }
  differ_ = differ_ || !strays_.empty();
}

void CommittedRows::addServices(std::vector<ListedService>& services) {
  numbers_.clear();
  strays_.clear();
  differ_ = false;
  numbers_.reserve(services.size());
  expected_ = services.data();
  end_ = expected_ + services.size();
  for (ListedService& service : services) {
    const AISRV_service_info& info = *service.info;
    SameNumber& same = numbers_[numberOf(info.major, info.minor, info.frequency)];
    service.index.reset();
    service.sameNumber = &same;
    service.next = same.unanswered;
    same.unanswered = &service;
    same.last = &service;
  }
}

SameNumber* CommittedRows::sameNumber(sqlite3_stmt* row) {
  int64_t major = 0;
  int64_t minor = 0;
  int64_t frequency = 0;
  if (!readNumber(valueOf(row, kMajor), major) || !readNumber(valueOf(row, kMinor), minor) ||
      !readNumber(valueOf(row, kFrequency), frequency) || major != static_cast<uint16_t>(major) ||
      minor != static_cast<uint16_t>(minor) || frequency != static_cast<uint32_t>(frequency)) {
    return nullptr;
  }
  const auto found =
      numbers_.find(numberOf(static_cast<uint16_t>(major), static_cast<uint16_t>(minor),
                             static_cast<uint32_t>(frequency)));
  return found != numbers_.end() ? &found->second : nullptr;
}

void CommittedRows::addRow(sqlite3_stmt* row) {
  const int64_t key = sqlite3_column_int64(row, kRowKey);
  // Most rows are in the order of the services and as they were written.
  const bool expected =
      expected_ != end_ && expected_->sameNumber->last == expected_ && !differs(row, *expected_);
  SameNumber* const same = expected ? expected_->sameNumber : sameNumber(row);
  if (same == nullptr) {
    strays_.push_back(key);
    return;
  }
  expected_ = same->last + 1;
  // The first row that a lookup finds counts.
  for (ListedService** at = &same->unanswered; *at != nullptr;) {
    ListedService& service = **at;
    if (finds(service, row)) {
      service.index = sqlite3_column_int(row, kIndex);
      *at = service.next;
    } else {
      at = &service.next;
    }
  }
  // The update by the last service, if it is one, leaves the row as it is.
  if (same->last->isUpdate() && (expected || !differs(row, *same->last))) return;
  same->rows.push_back(key);
  differ_ = true;
}

}  // namespace atsc
