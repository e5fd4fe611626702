#include "receiver_test_air.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "arrivals.h"
#include "atsc_host.h"

namespace receiver_test {
namespace {

// The state folder of the receiver under test, separate from other receivers.
const TemporaryFolder& state() {
  static const TemporaryFolder folder;
  return folder;
}
[[maybe_unused]] const bool kStateSet =
    setenv("ATSC_HOST_STATE", (state().path() / "state").c_str(), 1) == 0;

Arrivals<Report> reports;

void record(void* progress, int state) {
  reports.add({*static_cast<AICS_scan_progress*>(progress), state});
}

}  // namespace

Air::Air() {
  antenna_.setFolder(path());
  antenna_.setDwell({});
  ATSC_host_set_air(path().c_str());
  ATSC_host_set_dwell(0);
}

Bytes goodCarrier() {
  return packets(
      0x1FFB,
      {vct(0xC8, {{"GOOD", 5, 1, 3, 2, false, serviceLocation({{2, 49, ""}, {129, 52, "eng"}})}})});
}

int startScan(uint32_t source, uint32_t frequency, AICS_scan_callback callback) {
  AICS_search_request request{};
  request.search_type = frequency ? AICS_SEARCH_MANUAL : AICS_SEARCH_AUTOMATIC;
  request.always_2 = 2;
  request.frequency = frequency;
  request.source = static_cast<uint8_t>(source);
  return AICS_start_search(&request, callback);
}

std::vector<Report> scan(uint32_t source, uint32_t frequency) {
  reports.clear();
  if (startScan(source, frequency, record) != 0) {
    ADD_FAILURE() << "scan refused";
    return {};
  }
  return reports.takeUntil([](const Report& report) { return report.state == AICS_STATE_OVER; });
}

std::vector<Row> rows(uint32_t source) {
  const AISRV_query_filter filter{};
  uint32_t count = 0;
  EXPECT_EQ(0, AISRV_get_total_services(source, AISRV_SERVICE_MASK, &filter, 0, &count));
  std::vector<AISRV_service_info> records(count);
  std::vector<Bytes> names(count, Bytes(50));
  for (size_t i = 0; i < count; ++i) records[i].name = {names[i].data(), 50, 0};
  EXPECT_EQ(0, AISRV_get_n_services(source, AISRV_SERVICE_MASK, 0, &filter, 0, 0, &count,
                                    records.data()));
  std::vector<Row> result;
  for (size_t i = 0; i < count; ++i) {
    Row row{records[i], "", {}};
    EXPECT_EQ(1, row.info.name.encoding);
    row.name = latin({names[i].begin(), names[i].begin() + row.info.name.length});
    EXPECT_EQ(0, AISRV_get_pid_details(&row.info, &row.pids));
    row.info.name.text = nullptr;
    result.push_back(row);
  }
  return result;
}

std::vector<std::string> labels(const std::vector<Row>& list) {
  std::vector<std::string> texts;
  for (const Row& row : list)
    texts.push_back(std::to_string(row.info.major) + "-" + std::to_string(row.info.minor) + " " +
                    row.name);
  return texts;
}

std::vector<std::string> labels(uint32_t source) { return labels(rows(source)); }

std::vector<std::string> streams(const Row& row) {
  std::vector<std::string> texts;
  for (uint32_t i = 0; i < row.pids.count; ++i) {
    const AISRV_pid_info& s = row.pids.pids[i];
    texts.push_back(std::to_string(s.pid) + " " +
                    (s.language[0] ? std::string(s.language, 3) : std::string()) + " " +
                    std::to_string(s.stream_type));
  }
  return texts;
}

}  // namespace receiver_test
