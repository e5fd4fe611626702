// The rows of the service's tables as they are, for developers.
#ifndef ATSC_WEB_GUIDE_TABLE_ROWS_H_
#define ATSC_WEB_GUIDE_TABLE_ROWS_H_

#include <cstdint>
#include <string>

namespace web {

// Returns a JSON object: the tables of a database, and some rows of one of them (empty: the first)
// with its columns and the number of all its rows. Returns fewer rows if they are long. A missing
// file has no tables. Throws SQLite::Exception, also for a table that takes too long, and
// std::invalid_argument if there is no such table.
std::string tableRows(const std::string& path, const std::string& table, int64_t offset,
                      int64_t count);

}  // namespace web

#endif  // ATSC_WEB_GUIDE_TABLE_ROWS_H_
