#include "receiver_test_air.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <condition_variable>
#include <fstream>
#include <mutex>

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

uint32_t crc32(const Bytes& bytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (const uint8_t byte : bytes)
    for (int bit = 7; bit >= 0; --bit)
      crc = crc << 1 ^ (((crc >> 31) ^ (byte >> bit & 1)) ? 0x04C11DB7 : 0);
  return crc;
}

struct Recorder {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<Report> reports;
} recorder;

void record(void* progress, int state) {
  std::lock_guard<std::mutex> lock(recorder.mutex);
  recorder.reports.push_back({*static_cast<AICS_scan_progress*>(progress), state});
  recorder.changed.notify_all();
}

}  // namespace

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes be16(unsigned value) {
  return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

Air::Air() {
  std::filesystem::create_directory(folder_.path() / "vsb");
  std::filesystem::create_directory(folder_.path() / "qam");
  antenna_.setFolder(folder_.path());
  antenna_.setDwell({});
  ATSC_host_set_air(folder_.path().c_str());
  ATSC_host_set_dwell(0);
}

std::filesystem::path Air::path(uint32_t source, uint32_t frequency) const {
  return folder_.path() / (source == AI_INPUT_CABLE ? "qam" : "vsb") /
         (std::to_string(frequency) + ".ts");
}

void Air::write(uint32_t source, uint32_t frequency, const Bytes& stream) const {
  const std::filesystem::path target = path(source, frequency);
  const std::filesystem::path made = target.string() + ".new";
  std::ofstream file(made, std::ios::binary);
  file.write(reinterpret_cast<const char*>(stream.data()),
             static_cast<std::streamsize>(stream.size()));
  file.close();
  std::filesystem::rename(made, target);
}

Bytes section(uint8_t tableId, unsigned extension, const Bytes& body, unsigned version,
              bool current) {
  Bytes bytes = Bytes{tableId} + be16(0xB000 | (body.size() + 9)) + be16(extension);
  bytes = bytes + Bytes{static_cast<uint8_t>(0xC0 | version << 1 | (current ? 1 : 0)), 0, 0} + body;
  return sealed(bytes + Bytes(4));
}

Bytes sealed(Bytes bytes) {
  bytes.resize(bytes.size() - 4);
  const uint32_t crc = crc32(bytes);
  return bytes + be16(crc >> 16) + be16(crc & 0xFFFF);
}

Bytes packets(unsigned pid, const std::vector<Bytes>& sections) {
  Bytes stream;
  unsigned counter = 0;
  for (const Bytes& whole : sections) {
    for (size_t at = 0; at < whole.size();) {
      const bool start = at == 0;
      Bytes packet = Bytes{0x47} + be16((start ? 0x4000 : 0) | pid);
      packet.push_back(static_cast<uint8_t>(0x10 | (counter++ & 15)));
      if (start) packet.push_back(0);
      for (; packet.size() < 188 && at < whole.size(); ++at) packet.push_back(whole[at]);
      packet.resize(188, 0xFF);
      stream = stream + packet;
    }
  }
  return stream;
}

Bytes descriptor(uint8_t tag, const Bytes& content) {
  return Bytes{tag, static_cast<uint8_t>(content.size())} + content;
}

Bytes contentAdvisory(uint8_t region, const std::vector<std::pair<int, int>>& values) {
  Bytes content{0xC1, region, static_cast<uint8_t>(values.size())};
  for (const auto& [dimension, value] : values)
    content = content + Bytes{static_cast<uint8_t>(dimension), static_cast<uint8_t>(0xF0 | value)};
  return descriptor(0x87, content + Bytes{0});
}

Bytes serviceLocation(const std::vector<Element>& elements) {
  Bytes content = be16(0xE031) + Bytes{static_cast<uint8_t>(elements.size())};
  for (const Element& e : elements) {
    std::string language = e.language;
    language.resize(3);
    content =
        content + Bytes{e.type} + be16(0xE000 | e.pid) + Bytes(language.begin(), language.end());
  }
  return descriptor(0xA1, content);
}

Bytes vct(uint8_t tableId, const std::vector<Channel>& channels, unsigned version, bool current) {
  Bytes body{0, static_cast<uint8_t>(channels.size())};
  for (const Channel& c : channels) {
    Bytes name;
    for (const char letter : c.name) name = name + be16(static_cast<uint8_t>(letter));
    name.resize(14);
    body = body + name;
    body.push_back(static_cast<uint8_t>(0xF0 | c.major >> 6));
    body = body + be16((c.major << 10 | c.minor) & 0xFFFF);
    body = body + Bytes{4, 0, 0, 0, 0} + be16(c.tsid) + be16(c.program);
    // The bits for "out of band" on cable are reserved and set in terrestrial tables.
    body.push_back(static_cast<uint8_t>((c.hidden ? 0x11 : 0x01) | (tableId == 0xC8 ? 0x0C : 0)));
    body.push_back(static_cast<uint8_t>(0xC0 | c.serviceType));
    body = body + be16(c.program) + be16(0xFC00 | c.descriptors.size()) + c.descriptors;
  }
  return section(tableId, 1, body + be16(0xFC00), version, current);
}

Bytes pat(const std::vector<std::pair<unsigned, unsigned>>& programs, unsigned tsid) {
  Bytes body;
  for (const auto& [program, pid] : programs) body = body + be16(program) + be16(0xE000 | pid);
  return section(0, tsid, body);
}

Bytes pmt(unsigned program, const std::vector<PmtStream>& elementary, const Bytes& descriptors) {
  Bytes body = be16(0xE031) + be16(0xF000 | descriptors.size()) + descriptors;
  for (const PmtStream& s : elementary)
    body = body + Bytes{s.type} + be16(0xE000 | s.pid) + be16(0xF000 | s.descriptors.size()) +
           s.descriptors;
  return section(2, program, body);
}

namespace psip {
namespace {

Bytes be32(uint32_t value) { return be16(value >> 16) + be16(value & 0xFFFF); }

// multiple_string_structure: one string, not compressed, of Latin letters.
Bytes text(const std::string& letters) {
  return Bytes{1, 'e', 'n', 'g', 1, 0, 0, static_cast<uint8_t>(letters.size())} +
         Bytes(letters.begin(), letters.end());
}

}  // namespace

Bytes stt(uint32_t time, uint8_t gpsUtcOffset) {
  return section(0xCD, 0, Bytes{0} + be32(time) + Bytes{gpsUtcOffset, 0x60, 0});
}

Bytes mgt(const std::vector<std::pair<unsigned, unsigned>>& tables, unsigned version) {
  Bytes body = Bytes{0} + be16(static_cast<unsigned>(tables.size()));
  for (const auto& [type, pid] : tables)
    body = body + be16(type) + be16(0xE000 | pid) + Bytes{0xE1} + be32(100) + be16(0xF000);
  return section(0xC7, 0, body + be16(0xF000), version);
}

Bytes eit(unsigned sourceId, const std::vector<Event>& events, unsigned version) {
  Bytes body{0, static_cast<uint8_t>(events.size())};
  for (const Event& e : events) {
    const Bytes title = text(e.title);
    body = body + be16(0xC000 | e.id) + be32(e.start) +
           Bytes{static_cast<uint8_t>(0xD0 | e.duration >> 16)} + be16(e.duration & 0xFFFF) +
           Bytes{static_cast<uint8_t>(title.size())} + title +
           be16(static_cast<unsigned>(0xF000 | e.descriptors.size())) + e.descriptors;
  }
  return section(0xCB, sourceId, body, version);
}

Bytes ett(unsigned sourceId, unsigned eventId, const std::string& letters) {
  return section(0xCC, eventId, Bytes{0} + be32(sourceId << 16 | eventId << 2 | 2) + text(letters));
}

}  // namespace psip

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
  std::unique_lock<std::mutex> lock(recorder.mutex);
  recorder.reports.clear();
  if (startScan(source, frequency, record) != 0) {
    ADD_FAILURE() << "scan refused";
    return {};
  }
  recorder.changed.wait(lock, [] {
    return !recorder.reports.empty() && recorder.reports.back().state == AICS_STATE_OVER;
  });
  return recorder.reports;
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
    for (size_t at = 1; at < row.info.name.length; at += 2)
      row.name += static_cast<char>(names[i][at]);
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
