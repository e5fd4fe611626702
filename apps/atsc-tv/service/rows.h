// Rows of the databases that the service keeps.
#ifndef ATSC_TV_SERVICE_ROWS_H_
#define ATSC_TV_SERVICE_ROWS_H_

#include <json/value.h>

#include <string>

namespace tv {

// Runs "SELECT " + `selection` if the file has the table. An array of objects with the columns of
// the result; null when the file or the table does not exist. Texts are valid UTF-8. Throws when
// the file cannot be read.
Json::Value readRows(const std::string& database, const std::string& table,
                     const std::string& selection);

}  // namespace tv

#endif  // ATSC_TV_SERVICE_ROWS_H_
