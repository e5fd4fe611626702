// Reads a database of the service without being in its way: the service gives up on a lock after
// half a second.
#ifndef ATSC_WEB_GUIDE_SERVICE_FILE_H_
#define ATSC_WEB_GUIDE_SERVICE_FILE_H_

#include <SQLiteCpp/SQLiteCpp.h>
#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace web {

// Tells a file that was written from one that was not, without a look into it.
struct FileStamp {
  // Of the database and of its write-ahead log. A missing file is all zero.
  struct Part {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified = {};
    timespec changed = {};
  };
  Part file;
  Part log;
  // The file was written so long before that another write would have another time.
  bool settled = true;

  bool exists() const { return file.inode != 0; }
  bool isSame(const FileStamp& other) const;
};

FileStamp stampOf(const std::string& path);

// Returns `name` as an identifier of SQL.
std::string quotedName(const std::string& name);

// A database of the service, open for reading. Functions throw SQLite::Exception.
class ServiceFile {
 public:
  explicit ServiceFile(const std::string& path);

  // Returns SQLite's count of the transactions in this file; nothing if it counts them elsewhere.
  std::optional<uint32_t> transactions();

  std::vector<std::string> tables();
  std::vector<std::string> columnsOf(const std::string& table);

  // Reads a table in the order of its row ids: these columns (NULL for those that the table does
  // not have), then the row id. Calls `row` for each row while the file is locked; after at most
  // some 20 ms, or when `row` returns false, releases the lock and calls `between`, and goes on if
  // that returns true. Returns whether it read all; false also if the file was written in between,
  // which ends the reading unless `mayMix` is set.
  bool readInPieces(const std::string& table, const std::vector<const char*>& columns,
                    const std::function<bool(SQLite::Statement&)>& row,
                    const std::function<bool()>& between, bool mayMix = false);

  // Calls `read` while the file is locked. Ends its statements with an exception
  // (SQLITE_INTERRUPT) if they take too long.
  void readBriefly(const std::function<void()>& read);

  SQLite::Database& database() { return database_; }

 private:
  int64_t version();

  SQLite::Database database_;
  int64_t deadline_ = 0;  // of steady_clock
};

}  // namespace web

#endif  // ATSC_WEB_GUIDE_SERVICE_FILE_H_
