// The minimal platform: every function that the library calls, for a set with six services that are
// constant data. Nothing is received; the guide is made up from the PC's clock.
//
// It is a pattern for a platform of your own, not a product. A real set does more:
// - its middleware receives: services, guide, ratings, captions, alerts and the time come from the
//   streams, and tuning may fail or take its time;
// - parental control knows rating regions and blocks (parental.cpp says what it says instead);
// - services can be added by hand;
// - it lives on when memory is out: here std::bad_alloc leaves the functions;
// - its BUS has rights: here every process of the machine may call or take a name, and a TV
//   application that never answers a scan message keeps the service process from ending.
//
// A file a concern: bus, logger, osal, settings (what survives a restart), services (the data),
// guide, scan, playing (with the events), time, parental, modules (all small ones), and process,
// the threads of all of them and their end. docs/porting.md walks through it.
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

// settings.cpp: numbers that survive a restart. Any thread.
int32_t setting(const std::string& key, int32_t otherwise);
using Change = std::pair<std::string, int32_t>;
// Changes them at once and stores them. False when that cannot be done: the changes hold for this
// run then, or, with kAllOrNothing, there are none.
enum class Unstored { kHolds, kAllOrNothing };
bool changeSettings(const std::vector<Change>& changes, Unstored unstored = Unstored::kHolds);
// Reads the file anew; false leaves all as it is.
bool reloadSettings();

// services.cpp: what is on the air, and which of it is listed. Any thread.
struct Carrier {
  uint32_t inputSource;
  uint8_t channelNumber;
  uint32_t frequency;  // Hz
};
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
// Listed services of an input source in the order of their numbers.
std::vector<const Service*> listedServices(uint32_t inputSource);
// The listed service that a record number and input source (0 to 3) name, else null.
const Service* listedService(uint32_t rec, uint32_t inputSource);
const Service* listedService(const AISRV_service_info* record);
uint32_t flagsOf(const Service& service);  // AISRV_FLAG_*
// A search has visited a carrier: its services are listed. Returns their number.
uint32_t listCarrier(const Carrier& carrier);
void fillRecord(const Service& service, AISRV_service_info* record);
// As much of a text as the lent buffer takes.
void copyText(const char* text, multiple_lang_t* lent);
uint32_t modulationOf(uint32_t inputSource);

// playing.cpp. Any thread.
// Reports an event on the event thread.
void report(AFW_event_t event);
void reportTime(AFW_event_t event);
// The guide of the current input source changed and is complete.
void reportGuide();
// The tuner is taken away: playing ends.
void endPlaying();

// guide.cpp: brings the guide to the present time; false when it is there already.
bool moveGuide();

// time.cpp
uint32_t utcSeconds();

// bus.cpp: ends all servers of this process.
void endServers();

LoggerCpp& log();

}  // namespace minimal

#endif  // MINIMAL_PLATFORM_SET_H_
