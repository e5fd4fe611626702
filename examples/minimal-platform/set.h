// The minimal platform: implements every function that the library calls, with six services in
// constant data. Receives nothing; the guide is generated from the system clock.
//
// It is a template for a platform of your own, not a product. A real platform does more:
// - its middleware receives services, guide, ratings, captions, alerts and the time from transport
//   streams, and tuning may fail or take time;
// - it supports rating regions and blocking (parental.cpp has neither);
// - it supports adding services by hand;
// - it handles lack of memory: here, std::bad_alloc leaves the functions;
// - its BUS checks permissions: here, every process of the machine may call or take a name, and a
//   TV application that never answers a scan message keeps the service process from ending.
//
// Source files: bus, logger, osal, settings (persistent), services (the constant data), guide,
// scan, playing (and events), time, parental, modules (the small ones), process (threads and their
// end) and mutex (lock order). docs/porting.md describes the port step by step.
#ifndef MINIMAL_PLATFORM_SET_H_
#define MINIMAL_PLATFORM_SET_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "aifw.h"
#include "aisrv.h"
#include "logger_cpp.h"

namespace minimal {

enum { kSuccess = 0, kFailure = -1 };

// settings.cpp: persistent settings. Any thread may call.
// Returns the value of a key, or `otherwise` if the key is not set.
int32_t setting(const std::string& key, int32_t otherwise);
using Change = std::pair<std::string, int32_t>;
// Applies all changes and stores them in one step. Returns false if they cannot be stored: then
// they hold until the process ends, or, with kAllOrNothing, none is applied.
enum class Unstored { kHolds, kAllOrNothing };
bool changeSettings(const std::vector<Change>& changes, Unstored unstored = Unstored::kHolds);
// Reads the file again. Returns false, with nothing changed, if the file cannot be read.
bool reloadSettings();

// services.cpp: the services on the air and the service list. Any thread may call.
struct Carrier {
  uint32_t inputSource;
  uint8_t channelNumber;
  uint32_t frequency;  // Hz
};
// Returns the channels that a scan visits.
std::vector<Carrier> carriers();

struct Service {
  uint32_t rec;  // service record number
  uint32_t inputSource;
  uint32_t frequency;  // Hz
  uint16_t major;
  uint16_t minor;
  uint16_t sourceId;
  uint16_t programNumber;
  const char* name;
};
// Returns the listed services of an input source, sorted by channel number.
std::vector<const Service*> listedServices(uint32_t inputSource);
// Returns the listed service of a record number and input source (0 to 3), or null.
const Service* listedService(uint32_t rec, uint32_t inputSource);
const Service* listedService(const AISRV_service_info* record);
// Returns AISRV_FLAG_* bits.
uint32_t flagsOf(const Service& service);
// Lists the services of a carrier. Returns their number.
uint32_t listCarrier(const Carrier& carrier);
// Fills a record; its name is copied to the lent buffer.
void fillRecord(const Service& service, AISRV_service_info* record);
// Copies as much of a text as fits into the lent buffer.
void copyText(const char* text, multiple_lang_t* lent);
// Returns AI_MODULATION_*.
uint32_t modulationOf(uint32_t inputSource);

// playing.cpp. Any thread may call.
// Posts an event, which the event thread reports.
void report(AFW_event_t event);
// Posts an event with the present time as its data.
void reportTime(AFW_event_t event);
// Posts AFW_EPG_UPDATE and AFW_EPG_COMPLETE for the current input source.
void reportGuide();
// Stops playing and releases the tuner.
void endPlaying();

// guide.cpp: moves the guide to the current half hour. Returns false if it is there already.
bool moveGuide();

// time.cpp: returns the Unix time.
uint32_t utcSeconds();

// bus.cpp: stops all servers of this process and releases their names.
void endServers();

// logger.cpp: returns the log of the platform itself.
LoggerCpp& log();

}  // namespace minimal

#endif  // MINIMAL_PLATFORM_SET_H_
