// Reads rows of the service's databases.
#ifndef ATSC_APPS_COMMON_ROWS_H_
#define ATSC_APPS_COMMON_ROWS_H_

#include <json/value.h>

#include <string>

namespace apps {

// Runs "SELECT " + `selection`. Returns an array of objects with the columns of the result, or null
// if the file or the table does not exist. Texts are valid UTF-8. Throws std::runtime_error
// if the file cannot be read.
Json::Value readRows(const std::string& database, const std::string& table,
                     const std::string& selection);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_ROWS_H_
