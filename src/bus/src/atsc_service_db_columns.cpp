// Customer columns: columns that a product adds to the channel tables by a JSON file.
#include <json/json.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "atsc_config_file.h"
#include "atsc_log.h"
#include "atsc_service_db.h"

ATSC_LOGGER("atsc/service/db")

ATSC_Service_db_layout* atsc_service_db_custom_column = nullptr;
uint8_t atsc_service_db_custom_column_count = 0;

namespace {

constexpr const char* kDefaultFile = "/system/com.qel.atsc/qel.atsc.cus_col.json";
constexpr unsigned kMaxColumns = UINT8_MAX;

// Columns that the layout does not list; the last three are SQLite's names of the row key.
constexpr const char* kFurtherColumns[] = {"END", "rowid", "oid", "_rowid_"};

bool sameColumn(const ATSC_Service_db_layout& column, const std::string& name) {
  return strcasecmp(column.name, name.c_str()) == 0;
}

// Returns why `name` cannot name a customer column; null when it can. SQLite ignores the case of
// column names.
const char* nameFault(const std::string& name) {
  if (name.empty()) return "the name is empty";
  if (name.size() >= sizeof ATSC_Service_db_layout::name) return "the name has 128 bytes or more";
  if (name.find('\0') != std::string::npos) return "the name holds a NUL";
  const auto same = [&](const ATSC_Service_db_layout& column) { return sameColumn(column, name); };
  const auto sameName = [&](const char* other) { return strcasecmp(other, name.c_str()) == 0; };
  if (std::any_of(std::begin(atsc_service_db_layout), std::end(atsc_service_db_layout), same) ||
      std::any_of(std::begin(kFurtherColumns), std::end(kFurtherColumns), sameName)) {
    return "the channel tables have that column";
  }
  return nullptr;
}

// Reads one entry of the "column" array into a layout row. Returns false when the entry is
// rejected.
bool readColumn(const Json::Value& entry, unsigned index, ATSC_Service_db_layout& column,
                const atsc::LogPlace& place) {
  if (!entry.isObject() || !entry.get("name", "").isString()) {
    ATSC_LOG_AT(place, Error, "customized column[%u] rejected: no \"name\" text", index);
    return false;
  }
  const std::string name = entry.get("name", "").asString();
  ATSC_LOG_AT(place, Info, "customized cloumn name[%d] %s", static_cast<int>(index), name.c_str());
  if (const char* fault = nameFault(name)) {
    ATSC_LOG_AT(place, Error, "customized column[%u] rejected: %s: %.128s", index, fault,
                name.c_str());
    return false;
  }
  memcpy(column.name, name.c_str(), name.size());
  const Json::Value type = entry.get("type", "");
  column.type = type.isString() && type.asString() == "integer" ? 1 : 0;
  return true;
}

}  // namespace

std::string _ATSC_Service_db_get_custom_column_file() {
  ATSC_ENTER();
  const std::string path = atsc::configFile("ATSC_CUSTOM_DB_COLUMN_FILE", kDefaultFile);
  ATSC_LEAVE();
  return path;
}

int32_t _ATSC_Service_db_cus_init() {
  ATSC_ENTER();
  const std::string path = _ATSC_Service_db_get_custom_column_file();
  Json::Value root;
  try {
    std::ifstream file(path);
    Json::Reader reader;
    if (!file || !reader.parse(file, root)) {
      ATSC_LEAVE();
      return -1;
    }
  } catch (const std::exception& e) {
    ATSC_LOG(Error, "customer columns in %s: %s", path.c_str(), e.what());
    ATSC_LEAVE();
    return -1;
  }
  free(atsc_service_db_custom_column);
  atsc_service_db_custom_column = nullptr;
  atsc_service_db_custom_column_count = 0;
  if (!root.isObject() || !root["column"].isArray()) {
    if (!root.isObject()) ATSC_LOG(Error, "%s holds no JSON object", path.c_str());
    ATSC_LEAVE();
    return 0;
  }
  const Json::Value& columns = root["column"];
  const unsigned count = std::min<unsigned>(columns.size(), kMaxColumns);
  if (count < columns.size()) {
    ATSC_LOG(Error, "%s has %u customized columns, the first %u are taken", path.c_str(),
             columns.size(), count);
  }
  atsc_service_db_custom_column = static_cast<ATSC_Service_db_layout*>(
      calloc(std::max(count, 1u), sizeof *atsc_service_db_custom_column));
  if (atsc_service_db_custom_column == nullptr) {
    ATSC_LOG(Error, "atsc_service_db_custom_column is NULL");
    ATSC_LEAVE();
    return -1;
  }
  ATSC_LOG(Info, "customized cloumns size %d\n", static_cast<int>(count));
  for (unsigned i = 0; i < count; ++i) {
    ATSC_Service_db_layout column{};
    if (readColumn(columns[i], i, column, ATSC_HERE())) {
      atsc_service_db_custom_column[atsc_service_db_custom_column_count++] = column;
    }
  }
  ATSC_LEAVE();
  return 0;
}
