// Compares the channel table and the guide with bare SQLite.
#include <SQLiteCpp/SQLiteCpp.h>
#include <atsc/atsc_service.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "atsc_service_db.h"
#include "fake.h"
#include "report.h"
#include "temporary_folder.h"

namespace {

std::vector<fake::Service> services(int count) {
  std::vector<fake::Service> list;
  for (int i = 0; i < count; ++i) {
    list.push_back(fake::service(static_cast<uint16_t>(2 + i / 100),
                                 static_cast<uint16_t>(1 + i % 100),
                                 473000000u + 6000000u * static_cast<uint32_t>(i % 56), "NAME123"));
  }
  return list;
}

// Rewrites the rows of a table in the fastest way of bare SQLite: one transaction, one prepared
// statement, all values bound.
class BareRewrite {
 public:
  // `columns` is a list of the columns, separated by commas. The rows are the current rows of the
  // table.
  BareRewrite(const std::string& path, const std::string& table, const std::string& columns)
      : path_(path), clear_("DELETE FROM " + table) {
    SQLite::Database database(path_, SQLite::OPEN_READWRITE);
    SQLite::Statement rows(database, "SELECT " + columns + " FROM " + table);
    while (rows.executeStep()) {
      rows_.emplace_back();
      for (int i = 0; i < rows.getColumnCount(); ++i) {
        const SQLite::Column value = rows.getColumn(i);
        if (value.isInteger()) {
          rows_.back().emplace_back(value.getInt64());
        } else {
          rows_.back().emplace_back(value.getString());
        }
      }
    }
    insert_ = "INSERT INTO " + table + " (" + columns + ") VALUES (?";
    for (int i = 1; i < rows.getColumnCount(); ++i) insert_ += ",?";
    insert_ += ')';
  }

  void run() {
    SQLite::Database database(path_, SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX,
                              atsc::kBusyTimeoutMs);
    SQLite::Transaction transaction(database);
    database.exec(clear_);
    SQLite::Statement insert(database, insert_);
    for (const std::vector<Value>& row : rows_) {
      for (size_t i = 0; i < row.size(); ++i) {
        const int position = static_cast<int>(i) + 1;
        if (const int64_t* number = std::get_if<int64_t>(&row[i])) {
          insert.bind(position, *number);
        } else {
          insert.bindNoCopy(position, std::get<std::string>(row[i]));
        }
      }
      insert.exec();
      insert.reset();
    }
    transaction.commit();
  }

 private:
  using Value = std::variant<int64_t, std::string>;

  const std::string path_;
  const std::string clear_;
  std::string insert_;
  std::vector<std::vector<Value>> rows_;
};

constexpr const char* kChannelColumns =
    "ch_index,name,build_from_pmt,major_no,minor_no,service_record,source_id,freq,srv_type,"
    "srv_flag,fav_group,service_delete,audio_pid,video_pid,audio_count,video_count,update_time,"
    "ch_id_pk,tsid,tuner_type";
constexpr const char* kEventColumns =
    "ch_id_pk,event_index,event_id,name,start_time,duration,rating,multi_rating,genre_count,"
    "parent_stat,genre,cc,desc";

// Sets the guide of cable: half-hour programmes with descriptions of 200 bytes.
void setGuide(int serviceCount, int eventsEach) {
  std::vector<fake::Service> list;
  for (int i = 0; i < serviceCount; ++i) {
    list.push_back(
        fake::service(static_cast<uint16_t>(1 + i), 0, 57000000, "NAME123", AI_INPUT_CABLE));
    std::vector<fake::Event> events(static_cast<size_t>(eventsEach));
    for (size_t e = 0; e < events.size(); ++e) {
      events[e].info.event_id = static_cast<uint16_t>(e);
      events[e].info.start_time = 1795219200u + 1800 * static_cast<uint32_t>(e);
      events[e].info.duration = 1800;
      events[e].info.genre_count = 1;
      events[e].info.genres[0] = 0x20;
      events[e].name = fake::utf16("The Programme Number " + std::to_string(e));
      events[e].rating = fake::utf16("TV-PG");
      events[e].ratingEncoding = AI_TEXT_UTF16BE;
      events[e].description = fake::utf16(std::string(200, 'd'));
    }
    fake::setEvents(list.back(), std::move(events));
  }
  fake::setServices(AI_INPUT_CABLE, std::move(list));
}

}  // namespace

int main(int argc, char** argv) {
  const TemporaryFolder temporary;
  const std::string folder = temporary.path();
  fake::setRecording(false);
  std::vector<std::unique_ptr<BareRewrite>> floors;
  for (const int count : {1000, 4000}) {
    const std::string name = "channel table, " + std::to_string(count) + " unchanged services";
    const std::string path = folder + "/" + std::to_string(count) + ".db3";
    const auto select = [path, count] {
      if (*gChannel_DB_path == path) return;
      *gChannel_DB_path = path;
      fake::setServices(AI_INPUT_TERRESTRIAL, services(count));
    };
    select();
    std::ofstream{path};  // exists, because a missing file is logged
    _ATSC_Service_db_createChannelDB();
    ATSC_Service_db_UpdateChannel(AI_INPUT_TERRESTRIAL);
    floors.push_back(std::make_unique<BareRewrite>(path, "channel_data_t", kChannelColumns));
    bench::add(
        name,
        [select] {
          select();
          if (ATSC_Service_db_UpdateChannel(AI_INPUT_TERRESTRIAL) != 0) abort();
        },
        [floor = floors.back().get()] { floor->run(); }, 10);
  }
  bench::addGrowth("channel table, 4000 against 1000 services",
                   "channel table, 4000 unchanged services",
                   "channel table, 1000 unchanged services");
  const std::string guide = folder + "/events.db";
  setenv("ATSC_EVENT_DB", guide.c_str(), 1);
  std::ofstream{guide};
  setGuide(500, 100);
  ATSC_Service_db_UpdateEvent(AI_INPUT_CABLE);
  floors.push_back(std::make_unique<BareRewrite>(guide, "event_c", kEventColumns));
  bench::add(
      "guide, 50000 events", [] { ATSC_Service_db_UpdateEvent(AI_INPUT_CABLE); },
      [floor = floors.back().get()] { floor->run(); }, 3);
  return bench::run(argc, argv);
}
