// The channel table against bare SQLite.
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

// Rewrites the rows of a table as bare SQLite does it best: one transaction, one prepared
// statement, every value bound.
class BareRewrite {
 public:
  explicit BareRewrite(const std::string& path) : path_(path) {
    SQLite::Database database(path_, SQLite::OPEN_READWRITE);
    SQLite::Statement rows(database, std::string("SELECT ") + kColumns + " FROM channel_data_t");
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
  }

  void run() {
    SQLite::Database database(path_, SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX,
                              atsc::kBusyTimeoutMs);
    SQLite::Transaction transaction(database);
    database.exec("DELETE FROM channel_data_t");
    SQLite::Statement insert(database, std::string("INSERT INTO channel_data_t (") + kColumns +
                                           ") VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
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

  static constexpr const char* kColumns =
      "ch_index,name,build_from_pmt,major_no,minor_no,service_record,source_id,freq,srv_type,"
      "srv_flag,fav_group,service_delete,audio_pid,video_pid,audio_count,video_count,update_time,"
      "ch_id_pk,tsid,tuner_type";
  const std::string path_;
  std::vector<std::vector<Value>> rows_;
};

}  // namespace

int main(int argc, char** argv) {
  std::string folder = (std::filesystem::temp_directory_path() / "atsc-bench-XXXXXX").string();
  if (mkdtemp(&folder[0]) == nullptr) return 1;
  fake::setRecording(false);
  std::vector<std::unique_ptr<BareRewrite>> floors;
  for (const int count : {1000, 4000}) {
    const std::string name = "channel table, " + std::to_string(count) + " unchanged services";
    const std::string path = folder + "/" + std::to_string(count) + ".db3";
    const auto select = [path, count] {
      if (gChannel_DB_path == path) return;
      gChannel_DB_path = path;
      fake::setServices(AI_INPUT_TERRESTRIAL, services(count));
    };
    select();
    std::ofstream{path};  // not missing, which would be said
    _ATSC_Service_db_createChannelDB();
    ATSC_Service_db_UpdateChannel(AI_INPUT_TERRESTRIAL);
    floors.push_back(std::make_unique<BareRewrite>(path));
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
  const int status = bench::run(argc, argv);
  std::filesystem::remove_all(folder);
  return status;
}
