// An air folder of small transport streams, and a scan of it.
#ifndef ATSC_TESTS_HOST_RECEIVER_TEST_AIR_H_
#define ATSC_TESTS_HOST_RECEIVER_TEST_AIR_H_

#include <cstdint>
#include <string>
#include <vector>

#include "aics.h"
#include "air_folder.h"
#include "aisrv.h"
#include "broadcast.h"
#include "modules/host.h"
#include "temporary_folder.h"

namespace receiver_test {

using namespace broadcast;
using Texts = std::vector<std::string>;

constexpr uint32_t kAir = AI_INPUT_TERRESTRIAL;
constexpr uint32_t kCable = AI_INPUT_CABLE;
constexpr uint32_t kChannel14 = 473000000;
constexpr uint32_t kChannel15 = 479000000;
constexpr uint32_t kGpsEpoch = 315964800;  // in Unix seconds

// Convert a UTF-16BE text, the second to Latin-1.
std::u16string utf16(const std::string& text);
std::string latin(const std::string& text);

// An air folder with its antenna, and that of the process until another Air is made. Scans do not
// dwell.
class Air : public AirFolder {
 public:
  Air();
  const atschost::Air& antenna() const { return antenna_; }

 private:
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

// Returns a carrier with the channel 5-1 "GOOD", one video and one audio stream.
Bytes goodCarrier();

// Returns a cable_emergency_alert of priority 11 and 30 seconds. An empty `message` is none.
Bytes alert(unsigned sequence, const std::string& activation, const std::string& message);

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
Texts labels(uint32_t source);
Texts labels(const std::vector<Row>& rows);
// Returns "pid language type" of each stream, with the details of audio that are known.
Texts streams(const Row& row);

}  // namespace receiver_test

#endif  // ATSC_TESTS_HOST_RECEIVER_TEST_AIR_H_
