// The recording platform: what the library called, logged and sent; what it shall be answered.
#ifndef ATSC_TESTS_FAKE_H_
#define ATSC_TESTS_FAKE_H_

#include <aicc.h>
#include <aics.h>
#include <aiec.h>
#include <aifw.h>
#include <aipc.h>
#include <aisrv.h>
#include <aist.h>

#include <functional>
#include <string>
#include <vector>

namespace fake {

struct Service {
  AISRV_service_info info{};  // without the name
  std::string name;           // bytes as the middleware has them
  int32_t nameEncoding = AI_TEXT_UTF16BE;
  std::vector<AISRV_pid_info> pids;
};

// A programme of the guide. Texts are bytes as the middleware has them.
struct Event {
  AIEC_event_info info{};  // without the texts
  std::string name;
  int32_t nameEncoding = AI_TEXT_UTF16BE;
  std::string rating;
  int32_t ratingEncoding = 0;
  std::string allRatings;  // empty: the middleware leaves the buffer as it is
  std::string description;
  int32_t descriptionEncoding = AI_TEXT_UTF16BE;
};

// A text of the rating tables; it may claim another length than the buffer has.
struct Text {
  std::string bytes;
  int32_t encoding = 0;
  uint16_t claimedLength = 0;  // 0: that of `bytes`
};

// What the middleware knows of parental control. A failed call fills nothing.
struct Parental {
  uint32_t region = 1;
  AIPC_dime_t rating{};  // of whatever region is asked for
  AIPC_parental_details details{};
  std::vector<uint8_t> regions;
  uint32_t tableRegion = 0;
  Text name, text, abbreviation;
  uint8_t version = 0;
  uint8_t count = 0;  // of dimensions or levels
  uint8_t graduated = 0;
  int32_t groupStatus = 0;
  int32_t alertSetting = 0;
  int verdict = 0;
  std::vector<uint8_t> advisories;
  uint32_t ratingStatus = 0;
};

// ASCII as UTF-16BE.
std::string utf16(const std::string& ascii);

// A terrestrial TV service (or a cable one) with one video and one audio stream.
Service service(uint16_t major, uint16_t minor, uint32_t frequency, const std::string& name,
                uint32_t input = AI_INPUT_TERRESTRIAL);

// Forgets everything recorded and set.
void reset();

// Off: calls and log lines cost nothing and leave no trace.
void setRecording(bool on);

// Lets the middleware answer what the bytes say until they are used up: statuses, numbers, records,
// counts, texts and their lengths. It keeps to the buffers that it is lent.
void setNoise(std::string bytes);

// Middleware calls so far, such as "AICN_set_skip_play_srv(1)".
std::vector<std::string> calls();

// Runs on every middleware call, before it answers; without a lock.
void onCall(std::function<void(const std::string& call)> hook);

// What a middleware function returns, 0 unless set.
void setResult(const std::string& function, int status);

void setServices(uint32_t input, std::vector<Service> services);
// Makes the middleware claim another count than it has.
void claimCount(uint32_t count);
// The guide of a service. The middleware may claim another count than it has.
void setEvents(const Service& service, std::vector<Event> events);
void claimEventCount(uint16_t count);
void setUpdatedSources(std::vector<uint32_t> ids);
void claimUpdatedSources(uint32_t count);
void setAlertPriority(uint8_t priority);
void setTime(uint32_t seconds);
void setCurrent(const Service& service, int input);
void setTunedFrequency(uint32_t frequency);
void setLanguages(int32_t first, int32_t second);
void setTimeInfo(const AIST_system_time_info& info);
void setTimeDate(const AIST_time_date& date);
void setCaptions(const AICC_cc_service_data& captions);
void setParental(const Parental& parental);
void setIndexStatus(std::vector<int> statuses);

// The callback of the last search.
AICS_scan_callback scanCallback();
AICS_search_request lastSearch();
// The service that AIFW_modify_service() was last given.
Service modifiedService();

// The record that AIPC_store_rating() was last given.
AIPC_dime_t storedRating();
// The buffer that AIPC_check_rating() was last given, as long as it was said to be.
std::string checkedRating();

// What was registered for the middleware's events.
AIFW_app_callback eventCallback();
// Ends the time of the timer enabled last. False when none runs.
bool fireTimer();

// Log lines "LEVEL text", without the prefix up to the location.
std::vector<std::string> logs();
// The newest full line that holds `text`, "" when there is none.
std::string logLine(const std::string& text);
bool logged(const std::string& level, const std::string& text);

// Texts sent to a name that no server in this process serves.
std::vector<std::string> sent();
// Waits until as many texts were sent, at most some seconds.
std::vector<std::string> waitForSent(size_t count);
// Runs on every such text, before it counts as sent; without a lock.
void onSend(std::function<void(const std::string& text)> hook);

}  // namespace fake

#endif  // ATSC_TESTS_FAKE_H_
