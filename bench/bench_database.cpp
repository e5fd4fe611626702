// Compares the channel table and the guide with bare SQLite: time, and bytes written.
#include <SQLiteCpp/SQLiteCpp.h>
#include <atsc/atsc_service.h>

#include <chrono>
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

constexpr int kZaps = 200;

constexpr const char* kChannelColumns =
    "ch_index,name,build_from_pmt,major_no,minor_no,service_record,source_id,freq,srv_type,"
    "srv_flag,fav_group,service_delete,audio_pid,video_pid,audio_count,video_count,update_time,"
    "ch_id_pk,tsid,tuner_type";
constexpr const char* kEventColumns =
    "ch_id_pk,event_index,event_id,name,start_time,duration,rating,multi_rating,genre_count,"
    "parent_stat,genre,cc,desc";

// The guide of cable: half-hour programmes with descriptions of 200 bytes.
class Guide {
 public:
  Guide() {
    std::vector<fake::Service> list;
    for (int i = 0; i < kServices; ++i) {
      list.push_back(
          fake::service(static_cast<uint16_t>(1 + i), 0, 57000000, "NAME123", AI_INPUT_CABLE));
    }
    services_ = list;
    fake::setServices(AI_INPUT_CABLE, std::move(list));
    setAll("The", 0);
  }

  // Sets the titles of all programmes, of which the first starts in the half hour `first`.
  void setAll(const std::string& title, uint16_t first) {
    for (const fake::Service& service : services_) set(service, title, first);
  }

  void setOne(const std::string& title, uint16_t first) { set(services_[250], title, first); }

 private:
  static constexpr int kServices = 500;
  static constexpr uint16_t kEventsEach = 100;

  static void set(const fake::Service& service, const std::string& title, uint16_t first) {
    std::vector<fake::Event> events(kEventsEach);
    for (fake::Event& event : events) {
      event.info.event_id = first;
      event.info.start_time = 1795219200u + 1800u * first;
      event.info.duration = 1800;
      event.info.genre_count = 1;
      event.info.genres[0] = 0x20;
      event.name = fake::utf16(title + " Programme Number " + std::to_string(first++));
      event.rating = fake::utf16("TV-PG");
      event.ratingEncoding = AI_TEXT_UTF16BE;
      event.description = fake::utf16(std::string(200, 'd'));
    }
    fake::setEvents(service, std::move(events));
  }

  std::vector<fake::Service> services_;
};

double seconds(const std::function<void()>& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void rewriteGuide() { ATSC_Service_db_UpdateEvent(AI_INPUT_CABLE); }

// Returns the seconds of a rewrite without those of the check of the file.
double rewriteSeconds() {
  const double check = seconds([] { _ATSC_Service_db_createEventDB(AI_INPUT_CABLE); });
  return seconds(rewriteGuide) - check;
}

// Returns the bytes that this process writes during `work`.
double bytesWritten(const std::function<void()>& work) {
  const auto count = [] {
    std::ifstream file("/proc/self/io");
    double bytes = -1;
    for (std::string word; file >> word;) {
      if (word == "wchar:") file >> bytes;
    }
    return bytes;
  };
  const double before = count();
  work();
  return count() - before;
}

// The evening of a viewer who changes the channel 200 times; each time the guide is updated. In
// some of the updates a station's programmes have other titles, in one the first programmes have
// ended.
void zapThroughAnEvening(Guide& guide) {
  for (int i = 0; i < kZaps; ++i) {
    if (i % 10 == 5) guide.setOne("Change " + std::to_string(i), i < kZaps / 2 ? 0 : 1);
    if (i == kZaps / 2) guide.setAll("The", 1);
    rewriteGuide();
  }
}

}  // namespace

int main(int argc, char** argv) {
  const TemporaryFolder temporary;
  const std::string folder = temporary.path();
  fake::setRecording(false);
  std::vector<std::unique_ptr<BareRewrite>> floors;
  uint32_t now = 1000;
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
        [select, &now] {
          select();
          fake::setTime(++now);  // each run has another stamp
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
  Guide cable;
  rewriteGuide();
  // Of a copy: a guide that somebody else has written is written as a whole.
  const std::string copy = folder + "/copy.db";
  std::filesystem::copy(guide, copy);
  floors.push_back(std::make_unique<BareRewrite>(copy, "event_c", kEventColumns));
  const auto bare = [floor = floors.back().get()] { floor->run(); };
  const auto bareSeconds = [bare] { return seconds(bare); };
  bench::add(
      "guide, check of 50000 events", [] { _ATSC_Service_db_createEventDB(AI_INPUT_CABLE); }, bare,
      3);
  bench::addTimed("guide without check, 50000 events unchanged", rewriteSeconds, bareSeconds, 3);
  bench::addTimed(
      "guide without check, 50000 events changed",
      [&cable, n = 0]() mutable {
        cable.setAll(std::to_string(++n), 0);
        return rewriteSeconds();
      },
      bareSeconds, 3);
  const auto bareBytes = [bare] { return bytesWritten(bare); };
  bench::addFigure(
      "guide, 50000 events unchanged", "bytes",
      [] {
        rewriteGuide();
        return bytesWritten(rewriteGuide);
      },
      bareBytes);
  bench::addFigure(
      "guide, 100 of 50000 events changed", "bytes",
      [&cable] {
        cable.setOne("Other", 0);
        return bytesWritten(rewriteGuide);
      },
      bareBytes);
  bench::addFigure(
      "guide, an evening of 200 channel changes", "bytes",
      [&cable] { return bytesWritten([&cable] { zapThroughAnEvening(cable); }); },
      [bareBytes] { return kZaps * bareBytes(); });
  return bench::run(argc, argv);
}
