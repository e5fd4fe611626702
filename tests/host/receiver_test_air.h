// An air folder of small transport streams, written table by table, and a scan of it.
#ifndef ATSC_TESTS_HOST_RECEIVER_TEST_AIR_H_
#define ATSC_TESTS_HOST_RECEIVER_TEST_AIR_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "aics.h"
#include "aisrv.h"
#include "modules/host.h"
#include "temporary_folder.h"

namespace receiver_test {

using Bytes = std::vector<uint8_t>;

Bytes operator+(Bytes a, const Bytes& b);
Bytes be16(unsigned value);

// An air folder with its antenna, and that of the process until another Air is made. Scans do not
// dwell.
class Air {
 public:
  Air();
  const atschost::Air& antenna() const { return antenna_; }
  std::filesystem::path path(uint32_t source, uint32_t frequency) const;
  // Replaces the whole file.
  void write(uint32_t source, uint32_t frequency, const Bytes& stream) const;

 private:
  TemporaryFolder folder_;
  atschost::Air antenna_;
};

struct OwnClock {
  atschost::Clock ownClock;
};

// A receiver with a separate clock.
class TestReceiver : private OwnClock, public atschost::Receiver {
 public:
  explicit TestReceiver(const std::string& state, const atschost::Air& air = atschost::hostAir())
      : Receiver(state, air, ownClock) {}
};

// Returns a section with its header and CRC_32.
Bytes section(uint8_t tableId, unsigned extension, const Bytes& body, unsigned version = 1,
              bool current = true);
// Corrects the CRC_32 of a changed section.
Bytes sealed(Bytes bytes);
// Returns the packets of sections on one PID, with continuity counters from 0.
Bytes packets(unsigned pid, const std::vector<Bytes>& sections);

Bytes descriptor(uint8_t tag, const Bytes& content);
// Returns a content_advisory_descriptor of one region: dimensions and values.
Bytes contentAdvisory(uint8_t region, const std::vector<std::pair<int, int>>& values);

struct Element {
  uint8_t type;
  unsigned pid;
  std::string language;
};
Bytes serviceLocation(const std::vector<Element>& elements);

struct Channel {
  std::string name;
  unsigned major, minor, program;
  uint8_t serviceType = 2;
  bool hidden = false;
  Bytes descriptors = {};
  unsigned tsid = 1;
};
// `tableId` is 0xC8 for terrestrial, 0xC9 for cable.
Bytes vct(uint8_t tableId, const std::vector<Channel>& channels, unsigned version = 1,
          bool current = true);
Bytes pat(const std::vector<std::pair<unsigned, unsigned>>& programs, unsigned tsid = 1);
struct PmtStream {
  uint8_t type;
  unsigned pid;
  Bytes descriptors = {};
};
Bytes pmt(unsigned program, const std::vector<PmtStream>& streams, const Bytes& descriptors = {});

// Tables of the guide. Times are GPS seconds.
namespace psip {
struct Event {
  unsigned id;
  uint32_t start;
  unsigned duration;
  std::string title;
  Bytes descriptors = {};
};
Bytes stt(uint32_t time, uint8_t gpsUtcOffset);
// Tables by table_type and PID.
Bytes mgt(const std::vector<std::pair<unsigned, unsigned>>& tables, unsigned version = 1);
Bytes eit(unsigned sourceId, const std::vector<Event>& events, unsigned version = 1);
Bytes ett(unsigned sourceId, unsigned eventId, const std::string& text);
}  // namespace psip

// Returns a carrier with the channel 5-1 "GOOD", one video and one audio stream.
Bytes goodCarrier();

struct Report {
  AICS_scan_progress progress;
  int state;
};

int startScan(uint32_t source, uint32_t frequency, AICS_scan_callback callback);  // 0: automatic
// Runs a scan to its end and returns its reports.
std::vector<Report> scan(uint32_t source, uint32_t frequency = 0);

struct Row {
  AISRV_service_info info;
  std::string name;  // ASCII part of the UTF-16BE name
  AISRV_pid_details pids;
};
std::vector<Row> rows(uint32_t source);
// Returns "major-minor name" of each row.
std::vector<std::string> labels(uint32_t source);
std::vector<std::string> labels(const std::vector<Row>& rows);
// Returns "pid language type" of each stream.
std::vector<std::string> streams(const Row& row);

}  // namespace receiver_test

#endif  // ATSC_TESTS_HOST_RECEIVER_TEST_AIR_H_
