// The recording platform. Records calls, log lines and sent texts of the library, and returns the
// answers that a test sets.
#ifndef ATSC_TESTS_FAKE_H_
#define ATSC_TESTS_FAKE_H_

#include <aicc.h>
#include <aicn.h>
#include <aics.h>
#include <aiec.h>
#include <aifw.h>
#include <aipc.h>
#include <aisrv.h>
#include <aist.h>
#include <bus.h>
#include <osal.h>

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
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
  AIEC_event_info info{};  // without the texts; a length of the rating is a claim
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

struct State {
  // Answers of the middleware.
  std::map<std::string, int> results;  // by function; the default is 0
  std::map<uint32_t, std::vector<Service>> services;
  std::unordered_map<uint64_t, std::vector<AISRV_pid_info>> pids;  // by serviceKey()
  std::unordered_map<uint64_t, std::vector<Event>> events;
  std::optional<uint32_t> claimedCount;       // a wrong count of services
  std::optional<uint16_t> claimedEventCount;  // a wrong count of events
  uint32_t time = 1000;
  std::optional<Service> current;
  int currentInput = AI_INPUT_TERRESTRIAL;
  uint32_t tunedFrequency = 0;
  int32_t language = AICN_LANGUAGE_ENGLISH;
  int32_t secondLanguage = AICN_LANGUAGE_ENGLISH;
  AIST_system_time_info timeInfo{};
  AIST_time_date timeDate{};
  AICC_cc_service_data captions{};
  Parental parental;
  std::vector<int> indexStatuses;
  AIFW_event_update_data update{};
  uint8_t alertPriority = 0;

  // What the library did.
  std::vector<std::string> calls;  // of the middleware, such as "AICN_set_skip_play_srv(1)"
  std::vector<std::chrono::steady_clock::time_point> callTimes;
  std::vector<std::string> sent;  // to a name that no server in this process serves
  std::vector<std::string> logs;  // full lines after the level
  Service modified;               // by AIFW_modify_service()
  AIPC_dime_t storedRating{};
  std::string checkedRating;  // the buffer, with the length that the caller stated
  AICS_scan_callback scanCallback = nullptr;
  AIFW_app_callback eventCallback = nullptr;
  uint32_t timers = 0;
  OSAL_timer_handler timerHandler = nullptr;
  void* timerArgument = nullptr;

  std::map<std::string, BUSServerInterface*> servers;  // of this process; kept by reset()

  // Run without a lock: on each call before its answer, and on each sent text.
  std::function<void(const std::string&)> callHook, sendHook;
};

// The state, locked until the end of the expression.
class LockedState {
 public:
  State* operator->() const { return &instance(); }
  State& operator*() const { return instance(); }

 private:
  static State& instance();

  static inline std::mutex mutex_;
  std::unique_lock<std::mutex> lock_{mutex_};
};

inline LockedState state() { return {}; }

inline uint64_t serviceKey(const AISRV_service_id& id) {
  return uint64_t{id.input_source} << 32 | id.service_rec;
}

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

using Hook = std::function<void(const std::string&)>;
inline void onCall(Hook hook) { state()->callHook = std::move(hook); }
inline void onSend(Hook hook) { state()->sendHook = std::move(hook); }

inline void setResult(const std::string& of, int status) { state()->results[of] = status; }
void setServices(uint32_t input, std::vector<Service> services);
inline void setEvents(const Service& service, std::vector<Event> events) {
  state()->events[serviceKey(service.info.service_id)] = std::move(events);
}
void setUpdatedSources(const std::vector<uint32_t>& ids);
void setCurrent(const Service& service, int input);
inline void setTime(uint32_t seconds) { state()->time = seconds; }
inline void setParental(const Parental& parental) { state()->parental = parental; }
inline void setIndexStatus(std::vector<int> all) { state()->indexStatuses = std::move(all); }

inline std::vector<std::string> calls() { return state()->calls; }
inline std::vector<std::string> sent() { return state()->sent; }
inline AICS_scan_callback scanCallback() { return state()->scanCallback; }
// Waits until `count` texts were sent, at most some seconds.
std::vector<std::string> waitForSent(size_t count);
// Fires the timer that was enabled last. Returns false when none runs.
bool fireTimer();

// Categories of the loggers, by name.
std::map<std::string, std::string>& loggers();
// Returns log lines "LEVEL text", without the prefix up to the location.
std::vector<std::string> logs();
// Returns the newest full line that contains `text`, "" when there is none.
std::string logLine(const std::string& text);
bool logged(const std::string& level, const std::string& text);

}  // namespace fake

#endif  // ATSC_TESTS_FAKE_H_
