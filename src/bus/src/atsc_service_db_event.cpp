// The guide's tables.
#include <SQLiteCpp/SQLiteCpp.h>
#include <aiec.h>
#include <atsc/atsc_service.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "atsc_log.h"
#include "atsc_service_db.h"
#include "atsc_text.h"

ATSC_LOGGER("atsc/service/db")

namespace {

// Where so many rows in succession differ, the rest of the table is taken to differ too.
constexpr size_t kLongRun = 1024;

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
    multiple_lang_t lent{description_.data(), AIEC_DESCRIPTION_SIZE, 0};
    const int status = ATSC_CALL_AT(place, AIEC_get_event_description, &info_.key, &lent);
    atsc::textToUTF8(lent, AIEC_DESCRIPTION_SIZE, text);
    // Empty for the next one; most are much shorter than the buffer.
    const size_t used = status == 0 ? lent.length : description_.size();
    std::fill_n(description_.begin(), std::min(used, description_.size()), 0);
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

// State of a database file that every writer changes: its identity, its times, of which nobody can
// set the last one, and SQLite's count of transactions.
struct FileState {
  dev_t device;
  ino_t inode;
  off_t size;
  timespec modified, changed;
  uint32_t transactions;

  friend bool operator==(const FileState& a, const FileState& b) {
    const auto same = [](const timespec& x, const timespec& y) {
      return x.tv_sec == y.tv_sec && x.tv_nsec == y.tv_nsec;
    };
    return a.device == b.device && a.inode == b.inode && a.size == b.size &&
           same(a.modified, b.modified) && same(a.changed, b.changed) &&
           a.transactions == b.transactions;
  }
};

// Returns the state of an open file; none for a file that is not at its path any more, or whose
// transactions SQLite counts elsewhere (write-ahead log). Reads with SQLite's own descriptor: to
// close another one would release the locks of this process. The header is described in
// https://www.sqlite.org/fileformat2.html.
std::optional<FileState> fileState(SQLite::Database& database, const std::string& path) {
  struct stat status {};
  sqlite3_file* file = nullptr;
  int moved = 1;
  std::array<uint8_t, 28> header{};
  if (stat(path.c_str(), &status) != 0 ||
      sqlite3_file_control(database.getHandle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) !=
          SQLITE_OK ||
      moved != 0 ||
      sqlite3_file_control(database.getHandle(), "main", SQLITE_FCNTL_FILE_POINTER, &file) !=
          SQLITE_OK ||
      file->pMethods->xRead(file, header.data(), header.size(), 0) != SQLITE_OK ||
      header[18] != 1) {
    return std::nullopt;
  }
  const uint32_t transactions = uint32_t{header[24]} << 24 | uint32_t{header[25]} << 16 |
                                uint32_t{header[26]} << 8 | header[27];
  return FileState{status.st_dev,  status.st_ino,  status.st_size,
                   status.st_mtim, status.st_ctim, transactions};
}

// What the last rewrites have left in the file, as long as nobody else writes it. A rewrite takes
// it away and brings its own.
struct Written {
  std::optional<FileState> file;
  std::vector<uint64_t> rows[2];  // digests of the rows of the tables, in the order of the row ids;
                                  // none when they are not known
};

std::mutex gWrittenMutex;
atsc::Immortal<Written> gWritten;  // guarded by gWrittenMutex

// Returns a number that differs for different texts. Two sums run beside each other, because each
// step waits for the product of the last one.
uint64_t digestOf(const std::string& text) {
  uint64_t sums[2] = {text.size(), 0};
  const auto add = [&sums](const char* bytes, size_t count) {
    uint64_t parts[2] = {};
    memcpy(parts, bytes, count);
    for (int i = 0; i < 2; ++i) {
      sums[i] = (sums[i] ^ parts[i]) * 0x9E3779B97F4A7C15;  // odd, its bits are evenly spread
      sums[i] ^= sums[i] >> 32;
    }
  };
  size_t at = 0;
  for (; at + sizeof sums <= text.size(); at += sizeof sums) add(text.data() + at, sizeof sums);
  add(text.data() + at, text.size() - at);
  return sums[0] * 31 ^ sums[1];
}

// Rewrites the guide of an input. Of a table whose rows are known, writes only those that differ:
// readers find the rows, row ids and order of a table that was emptied and filled.
class GuideRewrite {
 public:
  GuideRewrite(int input, const atsc::LogPlace& place)
      : table_(atsc::eventTable(input)),
        place_(place),
        known_(exchangeWritten({})),
        written_(known_.rows[input == AI_INPUT_TERRESTRIAL]) {
    std::string columns, values;
    for (const char* column : kColumns) {
      columns += (columns.empty() ? "" : ",") + std::string(column);
      values += ",?";
    }
    insert_ = "INSERT INTO " + table_ + " ( " + columns + ")VALUES (";
    append_ = insert_ + values.substr(1) + ")";
    replace_ = "INSERT INTO " + table_ + " (" + columns + ",_rowid_) VALUES (?" + values + ")";
  }

  ~GuideRewrite() { exchangeWritten(std::move(known_)); }

  // Returns whether it wrote rows.
  bool run(const std::string& path, const std::vector<AISRV_service_info>& services) {
    try {
      SQLite::Database database(path, SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX,
                                atsc::kBusyTimeoutMs);
      // Pages written before the commit would block readers.
      database.exec("PRAGMA cache_spill = OFF");
      SQLite::Transaction transaction(database);
      command_ << "DELETE FROM " << table_;
      const std::string clear = command_.str();
      database.exec(clear + " WHERE 0");  // keeps other writers away
      const std::optional<FileState> before = fileState(database, path);
      if (!before || !known_.file || !(*before == *known_.file) || hasProductParts(database)) {
        known_ = {};
      }
      if (written_.empty() &&
          database.execAndGet("SELECT EXISTS (SELECT * FROM " + table_ + ")").getInt() != 0) {
        database.exec(clear);
        wrote_ = true;
      }
      const bool isKnown = !written_.empty();
      SQLite::Statement write(database, isKnown ? replace_ : append_);
      Statements statements{database, write, {}};
      if (isKnown) statements.clear.emplace(database, clear + " WHERE _rowid_ BETWEEN ? AND ?");
      for (const AISRV_service_info& service : services) writeEvents(service, statements);
      if (rows_.size() < written_.size()) {
        database.exec(clear + " WHERE _rowid_ > " + std::to_string(rows_.size()));
        wrote_ = true;
      }
      transaction.commit();
      gEvent_DB_written = true;
      written_ = std::move(rows_);
      if (!wrote_) return false;
      known_.file = fileState(database, path);
      // Not if the rows have other ids, or somebody else was quicker than this look at the file.
      if (!numbered_ ||
          (known_.file && (!before || known_.file->transactions != before->transactions + 1)))
        known_.file.reset();
    } catch (const SQLite::Exception& e) {
      atsc::logNotWritten(place_, path, e);
      atsc::printDatabaseError(e, place_.function, __LINE__, command_.str());
    }
    return wrote_;
  }

 private:
  static Written exchangeWritten(Written written) {
    const std::lock_guard<std::mutex> lock(gWrittenMutex);
    return std::exchange(*gWritten, std::move(written));
  }

  // Returns whether the table has triggers or indexes of the product, which see every row written.
  bool hasProductParts(SQLite::Database& database) const {
    return database
               .execAndGet(
                   "SELECT EXISTS (SELECT * FROM sqlite_master WHERE type <> 'table' AND "
                   "tbl_name = '" +
                   table_ + "')")
               .getInt() != 0;
  }

  struct Statements {
    SQLite::Database& database;
    SQLite::Statement& write;                // a row; by its id if the rows are known
    std::optional<SQLite::Statement> clear;  // known rows from one id to another
  };

  void writeEvents(const AISRV_service_info& service, Statements& statements) {
    const std::string key = atsc::channelKey(service);
    uint16_t count = 0;
    if (ATSC_CALL_AT(place_, AIEC_get_total_events, &service, &count) != 0 || count == 0) return;
    uint16_t got = 0;
    if (ATSC_CALL_AT(place_, AIEC_get_first_n_events, &service, event_.lend(), 1, &got) != 0 ||
        got == 0) {
      return;
    }
    for (uint16_t i = 0; i < count; ++i) {
      writeEvent(key, statements);
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

  void writeEvent(const std::string& key, Statements& statements) {
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
    buildInsert();
    ATSC_LOG_AT(place_, Debug, "SQL Command %s\n", command_.str().c_str());
    rows_.push_back(digestOf(command_.str()));
    const size_t at = rows_.size();
    if (at <= written_.size() && at > cleared_) {
      if (rows_[at - 1] == written_[at - 1]) return;
      clearFrom(at, *statements.clear);
    }
    wrote_ = true;
    SQLite::Statement& write = statements.write;
    for (size_t i = 0; i < row_.size(); ++i) atsc::bindValue(write, i + 1, atsc::view(row_[i]));
    if (statements.clear) write.bind(static_cast<int>(row_.size()) + 1, static_cast<int64_t>(at));
    write.exec();
    write.reset();
    numbered_ = numbered_ && statements.database.getLastInsertRowid() == static_cast<int64_t>(at);
  }

  // Deletes rows from `first` on: twice as many where rows differ that follow those of the last
  // time, and all after a long run. To delete and write row by row costs twice the time of a table
  // that was emptied.
  void clearFrom(size_t first, SQLite::Statement& clear) {
    clearing_ = first == cleared_ + 1 ? 2 * clearing_ : 1;
    cleared_ = clearing_ > kLongRun ? written_.size() : first + clearing_ - 1;
    clear.bind(1, static_cast<int64_t>(first));
    clear.bind(2, static_cast<int64_t>(cleared_));
    clear.exec();
    clear.reset();
  }

  // Returns the text of a column for writing; reuses its memory.
  std::string& text(size_t column) {
    if (!std::holds_alternative<std::string>(row_[column])) row_[column].emplace<std::string>();
    return std::get<std::string>(row_[column]);
  }

  // Builds the command for the row.
  void buildInsert() {
    command_.clear();
    command_ << insert_;
    for (size_t i = 0; i < row_.size(); ++i) {
      if (i > 0) command_++;
      atsc::appendValue(command_, atsc::view(row_[i]));
    }
    command_ << ")";
  }

  const std::string table_;
  const atsc::LogPlace place_;
  std::string insert_;            // the command up to its values
  std::string append_, replace_;  // the prepared statements: a row at the end, a row by its id
  sqlString command_;             // the command that is being run
  Event event_;
  EventRow row_;
  Written known_;
  std::vector<uint64_t>& written_;  // those of the table
  std::vector<uint64_t> rows_;      // so far
  size_t cleared_ = 0;              // id of the last row that was deleted to be written
  size_t clearing_ = 1;             // number of the rows that were deleted with it
  bool wrote_ = false;
  bool numbered_ = true;  // the written rows have the ids 1, 2, 3 ...
};

}  // namespace

thread_local bool gEvent_DB_written = false;

void ATSC_Service_db_UpdateEvent(int input_type) {
  ATSC_ENTER();
  gEvent_DB_written = false;
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
        [[maybe_unused]] const bool wrote =
            GuideRewrite(input_type, ATSC_HERE()).run(path, list.records);
#ifdef __GLIBC__
        // SQLite had all pages that were written in memory.
        if (wrote) malloc_trim(0);
#endif
      }
    }
  } catch (const std::exception& e) {
    ATSC_LOG(Error, "guide of input %d: %s", input_type, e.what());
  }
  ATSC_LEAVE();
}
