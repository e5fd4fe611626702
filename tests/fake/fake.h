// The recording platform. Records calls, log lines and sent texts of the library, and returns the
// answers that a test sets.
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
  std::string name;           // bytes as in the middleware
  int32_t nameEncoding = AI_TEXT_UTF16BE;
  std::vector<AISRV_pid_info> pids;
};

// A programme of the guide. Texts are bytes as in the middleware.
struct Event {
  AIEC_event_info info{};  // without the texts
  std::string name;
  int32_t nameEncoding = AI_TEXT_UTF16BE;
  std::string rating;
  int32_t ratingEncoding = 0;
  std::string allRatings;  // empty: the middleware does not change the buffer
  std::string description;
  int32_t descriptionEncoding = AI_TEXT_UTF16BE;
};

// A text of the rating tables, which can claim a wrong length.
struct Text {
  std::string bytes;
  int32_t encoding = 0;
  uint16_t claimedLength = 0;  // 0: length of `bytes`
};

// Parental control of the middleware. A failed call fills nothing.
struct Parental {
  uint32_t region = 1;
  AIPC_dime_t rating{};  // of any region
  AIPC_parental_details details{};
  std::vector<uint8_t> regions;
  uint32_t tableRegion = 0;
  Text name, text, abbreviation;
  uint8_t version = 0;
  uint8_t count = 0;  // number of dimensions or levels
  uint8_t graduated = 0;
  int32_t groupStatus = 0;
  int32_t alertSetting = 0;
  int verdict = 0;
  std::vector<uint8_t> advisories;
  uint32_t ratingStatus = 0;
};

// Converts ASCII to UTF-16BE.
std::string utf16(const std::string& ascii);

// Returns a terrestrial TV service (or a cable service) with one video and one audio stream.
Service service(uint16_t major, uint16_t minor, uint32_t frequency, const std::string& name,
                uint32_t input = AI_INPUT_TERRESTRIAL);

// Clears all records and settings.
void reset();

// Controls recording. When off, calls and log lines cost nothing and are not recorded.
void setRecording(bool on);

// Makes the middleware answer from the bytes until they are used up: statuses, numbers, records,
// counts, texts and their lengths. Never writes beyond the caller's buffers.
void setNoise(std::string bytes);

// Returns the middleware calls so far, such as "AICN_set_skip_play_srv(1)".
std::vector<std::string> calls();

// Sets a hook that runs on every middleware call, before the answer and without a lock.
void onCall(std::function<void(const std::string& call)> hook);

// Sets the return value of a middleware function; the default is 0.
void setResult(const std::string& function, int status);

void setServices(uint32_t input, std::vector<Service> services);
// Makes the middleware report a wrong count of services.
void claimCount(uint32_t count);
// Sets the guide of a service. The middleware can report a wrong count.
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

// Returns the callback of the last search.
AICS_scan_callback scanCallback();
AICS_search_request lastSearch();
// Returns the argument of the last AIFW_modify_service().
Service modifiedService();

// Returns the record of the last AIPC_store_rating().
AIPC_dime_t storedRating();
// Returns the buffer of the last AIPC_check_rating(), with the length that the caller stated.
std::string checkedRating();

// Returns the registered callback for the middleware's events.
AIFW_app_callback eventCallback();
// Fires the timer that was enabled last. Returns false when none runs.
bool fireTimer();

// Returns log lines "LEVEL text", without the prefix up to the location.
std::vector<std::string> logs();
// Returns the newest full line that contains `text`, "" when there is none.
std::string logLine(const std::string& text);
bool logged(const std::string& level, const std::string& text);

// Returns the texts sent to a name that no server in this process serves.
std::vector<std::string> sent();
// Waits until `count` texts were sent, at most some seconds.
std::vector<std::string> waitForSent(size_t count);
// Sets a hook that runs on every such text, before it is recorded and without a lock.
void onSend(std::function<void(const std::string& text)> hook);

}  // namespace fake

#endif  // ATSC_TESTS_FAKE_H_
