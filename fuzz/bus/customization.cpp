// Files that a product adds. An input is one byte and a customization file, or one byte and two
// customer-column files, separated by a form feed. The second file migrates the tables of the
// first.
#include <atsc/atsc_tables.h>
#include <strings.h>

#include <algorithm>
#include <set>

#include "harness.h"

// Replaces the start of the callback threads, which would start again with every input.
extern "C" void __wrap__Z23_ATSC_Service_Task_initv() {}

namespace {

struct IgnoreCase {
  bool operator()(const std::string& a, const std::string& b) const {
    return strcasecmp(a.c_str(), b.c_str()) < 0;
  }
};
using Names = std::set<std::string, IgnoreCase>;

void customize(const fuzz::Harness& harness, const std::string& text) {
  writeFile(harness.path("custom.json"), text);
  ATSCCustomizedParameter record;
  memset(&record, 0xAA, sizeof record);
  ATSC_Service_init(&record);
  fuzz::require(record.block_play_after_scan <= 1, "a truth value", text);
}

// Loads customer columns, updates the tables, and adds the names of the columns to `names`.
void addColumns(const fuzz::Harness& harness, const std::string& text, Names& names) {
  writeFile(harness.path("columns.json"), text);
  const int result = _ATSC_Service_db_cus_init();
  fuzz::require(result == 0 || result == -1, "a result of 0 or -1", text);
  _ATSC_Service_db_createChannelDB();
  for (unsigned i = 0; i < atsc_service_db_custom_column_count; ++i) {
    const ATSC_Service_db_layout& column = atsc_service_db_custom_column[i];
    fuzz::require(memchr(column.name, '\0', sizeof column.name) != nullptr, "a NUL", text);
    names.insert(column.name);
  }
}

// Checks that each table has the layout's columns, END and the customer's.
void checkTables(const fuzz::Harness& harness, const Names& names, const std::string& text) {
  SQLite::Database database(harness.path("channels.db3"));
  for (const char* table : {"channel_data_t", "channel_data_c"}) {
    Names left = names;
    size_t columns = 0;
    SQLite::Statement rows(database,
                           "SELECT name FROM pragma_table_info('" + std::string(table) + "')");
    for (; rows.executeStep(); ++columns) left.erase(rows.getColumn(0).getString());
    fuzz::require(left.empty(), "the customer's columns", text);
    fuzz::require(columns == ATSC_CHANNEL_COLUMNS + 1 + names.size(), "no other columns", text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Harness& harness = fuzz::Harness::restored();
  fuzz::Input input(data, size);
  const uint8_t flags = input.byte();
  const std::string text = input.rest();
  if ((flags & 1) != 0) {
    customize(harness, text);
    return 0;
  }
  // A new set, or a set that has run without customer columns.
  if ((flags & 2) != 0) unlink(harness.path("channels.db3").c_str());
  atsc_service_db_custom_column_count = 0;
  Names names;
  const size_t end = text.find('\f');
  addColumns(harness, text.substr(0, end), names);
  if (end != std::string::npos) addColumns(harness, text.substr(end + 1), names);
  checkTables(harness, names, text);
  for (const int source : {AI_INPUT_TERRESTRIAL, AI_INPUT_CABLE}) {
    ATSC_Service_db_UpdateChannel(source);
  }
  SQLite::Database database(harness.path("channels.db3"));
  fuzz::require(database.execAndGet("SELECT COUNT(*) FROM channel_data_t").getInt() == 2, "rows",
                text);
  if ((flags & 8) != 0) harness.checkChannels();
  return 0;
}
