// The guide's tables.
#include <SQLiteCpp/SQLiteCpp.h>
#include <aiec.h>
#include <atsc/atsc_service.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <variant>

#include "atsc_log.h"
#include "atsc_service_db.h"
#include "atsc_text.h"

ATSC_LOGGER("atsc/service/db")

namespace {

// Columns of an event's row, in the order of the insertion.
constexpr const char* kColumns[] = {
    "ch_id_pk",     "event_index", "event_id",    "name",  "start_time", "duration", "rating",
    "multi_rating", "genre_count", "parent_stat", "genre", "cc",         "desc"};

using EventRow = std::array<atsc::ColumnValue, std::size(kColumns)>;

// One event of the middleware with its text buffers.
class Event {
 public:
  // Returns the record, cleared, with cleared buffers.
  AIEC_event_info* lend() {
    info_ = {};
    name_.fill(0);
    rating_.fill(0);
    info_.name = {name_.data(), AIEC_NAME_SIZE, 0};
    info_.rating = {rating_.data(), AIEC_RATING_SIZE, 0};
    return &info_;
  }

  const AIEC_event_info& info() const { return info_; }

  void name(std::string& text) const {
    if (info_.name.text == nullptr || info_.name.length == 0) {
      text = "EMPTY";
    } else {
      atsc::textToUTF8(info_.name, AIEC_NAME_SIZE, text);
    }
  }

  void rating(std::string& text, const atsc::LogPlace& place) const {
    if (info_.rating.text == nullptr || info_.rating.length == 0) {
      text = "No rating";
    } else if (info_.multi_rating == 0) {
      ratingText(info_.rating, text);
    } else {
      std::array<uint8_t, AIEC_RATING_SIZE> buffer{};
      multiple_lang_t all{buffer.data(), AIEC_RATING_SIZE, 0};
      ATSC_CALL_AT(place, AIEC_get_multiple_event_rating_string, &info_.key, &all);
      ratingText(all, text);
    }
  }

  void genres(std::string& text) const {
    text.clear();
    const unsigned count = std::min<unsigned>(info_.genre_count, AIEC_MAX_GENRES);
    for (unsigned i = 0; i < count; ++i) text += std::to_string(info_.genres[i]) + ',';
  }

  void description(std::string& text, const atsc::LogPlace& place) {
    description_.fill(0);
    multiple_lang_t lent{description_.data(), AIEC_DESCRIPTION_SIZE, 0};
    ATSC_CALL_AT(place, AIEC_get_event_description, &info_.key, &lent);
    atsc::textToUTF8(lent, AIEC_DESCRIPTION_SIZE, text);
  }

 private:
  // A buffer that the middleware has not changed holds no rating.
  static void ratingText(const multiple_lang_t& text, std::string& converted) {
    if (text.text != nullptr && text.encoding != AI_TEXT_UTF16BE &&
        text.length == AIEC_RATING_SIZE &&
        std::all_of(text.text, text.text + text.length, [](uint8_t byte) { return byte == 0; })) {
      converted = "Not rated";
    } else {
      atsc::textToUTF8(text, AIEC_RATING_SIZE, converted);
    }
  }

  AIEC_event_info info_{};
  std::array<uint8_t, AIEC_NAME_SIZE> name_{};
  std::array<uint8_t, AIEC_RATING_SIZE> rating_{};
  std::array<uint8_t, AIEC_DESCRIPTION_SIZE> description_{};
};

// Rewrites the guide of an input.
class GuideRewrite {
 public:
  GuideRewrite(std::string table, const atsc::LogPlace& place)
      : table_(std::move(table)), place_(place) {
    insert_ = "INSERT INTO " + table_ + " ( ";
    for (const char* column : kColumns) {
      insert_ += column;
      insert_ += column == std::end(kColumns)[-1] ? ")" : ",";
    }
    insert_ += "VALUES (";
  }

  void run(const std::string& path, const std::vector<AISRV_service_info>& services) {
    try {
      SQLite::Database database(path, SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX,
                                atsc::kBusyTimeoutMs);
      // Pages written before the commit would block readers.
      database.exec("PRAGMA cache_spill = OFF");
      SQLite::Transaction transaction(database);
      command_ << "DELETE FROM " << table_;
      database.exec(command_.str());
      buildInsert(nullptr);
      SQLite::Statement insert(database, command_.str());
      for (const AISRV_service_info& service : services) writeEvents(service, insert);
      transaction.commit();
    } catch (const SQLite::Exception& e) {
      atsc::logNotWritten(place_, path, e);
      atsc::printDatabaseError(e, place_.function, __LINE__, command_.str());
    }
  }

 private:
  void writeEvents(const AISRV_service_info& service, SQLite::Statement& insert) {
    const std::string key = atsc::channelKey(service);
    uint16_t count = 0;
    if (ATSC_CALL_AT(place_, AIEC_get_total_events, &service, &count) != 0 || count == 0) return;
    uint16_t got = 0;
    if (ATSC_CALL_AT(place_, AIEC_get_first_n_events, &service, event_.lend(), 1, &got) != 0 ||
        got == 0) {
      return;
    }
    for (uint16_t i = 0; i < count; ++i) {
      writeEvent(key, insert);
      const AIEC_event_key previous = event_.info().key;
      got = 0;
      const int status = AIEC_get_next_n_events(&previous, event_.lend(), 1, &got, 1);
      // The result after the last event has no effect.
      if (i + 1 == count) break;
      if (atsc::checkStatus(*g_logger, place_, "AIEC_get_next_n_events", status) != 0 || got == 0) {
        return;
      }
    }
  }

  void writeEvent(const std::string& key, SQLite::Statement& insert) {
    const AIEC_event_info& info = event_.info();
    text(0) = key;
    row_[1] = int64_t{info.key.event_index};
    row_[2] = int64_t{info.event_id};
    event_.name(text(3));
    row_[4] = int64_t{info.start_time};
    row_[5] = int64_t{info.duration};
    event_.rating(text(6), place_);
    row_[7] = int64_t{info.multi_rating};
    row_[8] = int64_t{info.genre_count};
    row_[9] = int64_t{info.parental_status};
    event_.genres(text(10));
    row_[11] = int64_t{info.captions};
    event_.description(text(12), place_);
    buildInsert(&row_);
    ATSC_LOG_AT(place_, Debug, "SQL Command %s\n", command_.str().c_str());
    for (size_t i = 0; i < row_.size(); ++i) atsc::bindValue(insert, i + 1, row_[i]);
    insert.exec();
    insert.reset();
  }

  // Returns the text of a column for writing; reuses its memory.
  std::string& text(size_t column) {
    if (!std::holds_alternative<std::string>(row_[column])) row_[column].emplace<std::string>();
    return std::get<std::string>(row_[column]);
  }

  // Builds the command for one row; without a row, the text of the prepared statement.
  void buildInsert(const EventRow* row) {
    command_.clear();
    command_ << insert_;
    for (size_t i = 0; i < std::size(kColumns); ++i) {
      if (i > 0) command_++;
      atsc::appendValue(command_, row != nullptr ? &(*row)[i] : nullptr);
    }
    command_ << ")";
  }

  const std::string table_;
  const atsc::LogPlace place_;
  std::string insert_;  // the command up to its values
  sqlString command_;   // the command that is being run
  Event event_;
  EventRow row_;
};

}  // namespace

void ATSC_Service_db_UpdateEvent(int input_type) {
  ATSC_ENTER();
  try {
    const uint32_t input =
        input_type == AI_INPUT_TERRESTRIAL ? AI_INPUT_TERRESTRIAL : AI_INPUT_CABLE;
    uint32_t count = 0;
    atsc::FetchedServices list;
    // Without a list the guide stays unchanged: an empty list would delete all events.
    if (atsc::countServices(input, count, ATSC_HERE())) {
      ATSC_LOG(Info, "channel count(%d)", static_cast<int>(count));
      if (atsc::fetchServices(input, count, list, ATSC_HERE())) {
        const std::string path = _ATSC_Service_db_createEventDB(input_type);
        GuideRewrite(atsc::eventTable(input_type), ATSC_HERE()).run(path, list.records);
      }
    }
  } catch (const std::exception& e) {
    ATSC_LOG(Error, "guide of input %d: %s", input_type, e.what());
  }
  ATSC_LEAVE();
}
