#include "guide/service_file.h"

#include <sqlite3.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <stdexcept>
#include <tuple>

namespace web {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kFileBusyMs = 2000;
constexpr milliseconds kPiece(20);
constexpr milliseconds kLongestLock(80);

// No text of a broadcast is nearly as long; a foreign one shall not fill the memory. SQLite refuses
// to read beyond a longer one, so that it would hide the rows behind it.
constexpr int kLongestValue = 16 << 20;

// Times of files have the step of the kernel's clock, at most 10 ms.
constexpr int64_t kSettledNs = 100'000'000;

int64_t nanoseconds(const timespec& time) {
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

FileStamp::Part partOf(const std::string& path) {
  struct stat status {};
  // To open a pipe would take until somebody writes to it.
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

bool isSamePart(const FileStamp::Part& a, const FileStamp::Part& b) {
  const auto all = [](const FileStamp::Part& part) {
    return std::make_tuple(part.device, part.inode, part.size, nanoseconds(part.modified),
                           nanoseconds(part.changed));
  };
  return all(a) == all(b);
}

}  // namespace

bool FileStamp::isSame(const FileStamp& other) const {
  return isSamePart(file, other.file) && isSamePart(log, other.log);
}

FileStamp stampOf(const std::string& path) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  FileStamp stamp;
  stamp.file = partOf(path);
  stamp.log = partOf(path + "-wal");
  const int64_t written =
      std::max({nanoseconds(stamp.file.modified), nanoseconds(stamp.log.modified),
                nanoseconds(stamp.file.changed)});
  stamp.settled = nanoseconds(now) - written > kSettledNs;
  return stamp;
}

std::string quotedName(const std::string& name) {
  std::string quoted = "`";
  for (const char c : name) quoted.append(c == '`' ? 2 : 1, c);
  return quoted + '`';
}

ServiceFile::ServiceFile(const std::string& path)
    : database_(path, SQLite::OPEN_READONLY, kFileBusyMs) {
  sqlite3_limit(database_.getHandle(), SQLITE_LIMIT_LENGTH, kLongestValue);
  database_.exec("PRAGMA cache_size = -256");
  database_.exec("PRAGMA trusted_schema = OFF");
}

std::optional<uint32_t> ServiceFile::transactions() {
  // With SQLite's own descriptor: to close another one would release the locks of this process. The
  // header is described in https://www.sqlite.org/fileformat2.html.
  SQLite::Transaction lock(database_);
  database_.execAndGet("SELECT count(*) FROM sqlite_master");
  sqlite3_file* file = nullptr;
  std::array<uint8_t, 28> header{};
  if (sqlite3_file_control(database_.getHandle(), "main", SQLITE_FCNTL_FILE_POINTER, &file) !=
          SQLITE_OK ||
      file->pMethods == nullptr ||
      file->pMethods->xRead(file, header.data(), header.size(), 0) != SQLITE_OK ||
      header[18] != 1) {
    return std::nullopt;
  }
  return uint32_t{header[24]} << 24 | uint32_t{header[25]} << 16 | uint32_t{header[26]} << 8 |
         header[27];
}

std::vector<std::string> ServiceFile::tables() {
  std::vector<std::string> names;
  SQLite::Statement query(database_,
                          "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE "
                          "'sqlite@_%' ESCAPE '@' ORDER BY rowid LIMIT 1000");
  while (query.executeStep()) names.push_back(query.getColumn(0).getString());
  return names;
}

std::vector<std::string> ServiceFile::columnsOf(const std::string& table) {
  std::vector<std::string> names;
  SQLite::Statement query(database_, "SELECT name FROM pragma_table_info(?)");
  query.bind(1, table);
  while (query.executeStep()) names.push_back(query.getColumn(0).getString());
  return names;
}

int64_t ServiceFile::version() { return database_.execAndGet("PRAGMA data_version").getInt64(); }

bool ServiceFile::readInPieces(const std::string& table, const std::vector<const char*>& columns,
                               const std::function<bool(SQLite::Statement&)>& row,
                               const std::function<bool()>& between, bool mayMix) {
  const std::vector<std::string> present = columnsOf(table);
  if (std::any_of(present.begin(), present.end(), [](const std::string& name) {
        return strcasecmp(name.c_str(), "_rowid_") == 0;
      })) {
    // It hides the row ids, and to sort by it would hold the lock for long.
    throw std::runtime_error(table + ": a column has the name _rowid_");
  }
  std::string list;
  for (const char* column : columns) {
    const bool found = std::find(present.begin(), present.end(), column) != present.end();
    list += (found ? quotedName(column) : "NULL") + ',';
  }
  const int idColumn = static_cast<int>(columns.size());
  SQLite::Statement query(database_, "SELECT " + list + "_rowid_ FROM " + quotedName(table) +
                                         " WHERE _rowid_ >= ? ORDER BY _rowid_");
  int64_t next = std::numeric_limits<int64_t>::min();
  std::optional<int64_t> first;
  for (bool isOver = false; !isOver;) {
    {
      SQLite::Transaction lock(database_);
      const int64_t now = version();
      if (first && *first != now && !mayMix) return false;
      first = now;
      const auto end = steady_clock::now() + kPiece;
      query.bind(1, next);
      while (true) {
        if (!query.executeStep()) {
          isOver = true;
          break;
        }
        const int64_t id = query.getColumn(idColumn).getInt64();
        const bool goesOn = row(query);
        isOver = id == std::numeric_limits<int64_t>::max() || id < next;
        if (isOver) break;
        next = id + 1;
        if (!goesOn || steady_clock::now() >= end) break;
      }
      query.reset();
      lock.commit();
    }
    if (!between()) return false;
  }
  return true;
}

void ServiceFile::readBriefly(const std::function<void()>& read) {
  SQLite::Transaction lock(database_);
  version();  // waits for the lock, which is not counted
  deadline_ = (steady_clock::now() + kLongestLock).time_since_epoch().count();
  sqlite3_progress_handler(
      database_.getHandle(), 1000,
      [](void* deadline) {
        return static_cast<int>(steady_clock::now().time_since_epoch().count() >
                                *static_cast<int64_t*>(deadline));
      },
      &deadline_);
  read();
  sqlite3_progress_handler(database_.getHandle(), 0, nullptr, nullptr);
  lock.commit();
}

}  // namespace web
