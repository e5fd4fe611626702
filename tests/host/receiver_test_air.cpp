#include "receiver_test_air.h"

#include <gtest/gtest.h>

#include <sstream>

#include "arrivals.h"
#include "atsc_host.h"

namespace receiver_test {
namespace {

Arrivals<Report> reports;

void record(void* progress, int state) {
  reports.add({*static_cast<AICS_scan_progress*>(progress), state});
}

}  // namespace

std::u16string utf16(const std::string& text) {
  std::u16string units;
  for (size_t i = 0; i + 1 < text.size(); i += 2)
    units += static_cast<char16_t>(static_cast<uint8_t>(text[i]) << 8 |
                                   static_cast<uint8_t>(text[i + 1]));
  return units;
}

std::string latin(const std::string& text) {
  std::string plain;
  for (const char16_t unit : utf16(text)) plain += unit < 0x100 ? static_cast<char>(unit) : '?';
  return plain;
}

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

Bytes alert(unsigned sequence, const std::string& activation, const std::string& message) {
  const Bytes whole = message.empty() ? Bytes() : text(message);
  const Bytes body = Bytes{0, 0, 9, 'C', 'I', 'V'} + counted(bytesOf("TOR")) +
                     counted(text(activation)) + Bytes{30} + be32(77) + be16(15) + be16(0xF00B) +
                     Bytes(8) + be16(whole.size()) + whole + Bytes{0, 0} + be16(0xFC00);
  return section(0xD8, 0, body, sequence);
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

Texts labels(const std::vector<Row>& list) {
  Texts texts;
  for (const Row& row : list)
    texts.push_back(std::to_string(row.info.major) + "-" + std::to_string(row.info.minor) + " " +
                    row.name);
  return texts;
}

Texts labels(uint32_t source) { return labels(rows(source)); }

Texts streams(const Row& row) {
  Texts texts;
  for (uint32_t i = 0; i < row.pids.count; ++i) {
    const AISRV_pid_info& s = row.pids.pids[i];
    std::ostringstream text;
    const auto language = [](const char(&code)[3]) { return std::string(code, code[0] ? 3 : 0); };
    text << s.pid << ' ' << language(s.language) << ' ' << +s.stream_type;
    if (s.audio_kind != 0) text << " kind " << +s.audio_kind;
    if (s.main_audio_number != 0) text << " main " << +s.main_audio_number;
    if (s.description_mask != 0) text << " describes " << +s.description_mask;
    if (s.full_mix != 0) text << " mixed";
    if (s.second_language[0] != 0) text << " second " << language(s.second_language);
    texts.push_back(text.str());
  }
  return texts;
}

}  // namespace receiver_test
