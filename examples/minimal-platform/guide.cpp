// AIEC: programme guide. Each service has kEvents programmes of half an hour, beginning with the
// current one.
#include <atomic>
#include <iterator>

#include "aiec.h"
#include "set.h"

namespace minimal {

namespace {

constexpr uint16_t kEvents = 4;
constexpr uint32_t kSeconds = 1800;

struct Programme {
  const char* name;
  const char* rating;  // null: not rated
  const char* description;
  uint8_t genre;  // A/65 table 6.20
};

constexpr Programme kProgrammes[] = {
    {"News", nullptr, "What happened today.", 0x23},
    {"The Long Way Home", "TV-PG", "A film in many parts.", 0x22},
    {"Match of the Week", "TV-G", "", 0x25},
    {"Ships and Their Makers", "TV-G", "How a ferry is built.", 0x20},
    {"Quiz Night", nullptr, "", 0x21},
};

// Start of the guide in half hours since 1970.
std::atomic<uint32_t> firstHalfHour{0};

const Programme& programme(const Service& service, uint32_t halfHour) {
  return kProgrammes[(halfHour + service.rec) % std::size(kProgrammes)];
}

// Returns the programme of an event, or null if there is no such event.
const Programme* programme(const AIEC_event_key* key) {
  if (key == nullptr || key->event_index >= kEvents) return nullptr;
  const Service* const service = listedService(key->service_rec, key->input_source);
  return service == nullptr ? nullptr : &programme(*service, firstHalfHour + key->event_index);
}

uint16_t copyEvents(const Service& service, uint32_t index, AIEC_event_info* events,
                    uint16_t count) {
  const uint32_t first = firstHalfHour;
  uint16_t copied = 0;
  for (; index < kEvents && copied < count; ++index) {
    AIEC_event_info& event = events[copied++];
    const Programme& content = programme(service, first + index);
    event.key = {service.rec, service.inputSource, index};
    event.event_id = static_cast<uint16_t>((first + index) & 0x3FFF);
    event.genre_count = 1;
    event.genres[0] = content.genre;
    event.multi_rating = 0;
    event.start_time = (first + index) * kSeconds;
    event.duration = kSeconds;
    event.parental_status = 0;  // nothing is blocked
    event.captions = 0;
    copyText(content.name, &event.name);
    copyText(content.rating != nullptr ? content.rating : "", &event.rating);
  }
  return copied;
}

}  // namespace

bool moveGuide() {
  const uint32_t now = utcSeconds() / kSeconds;
  return firstHalfHour.exchange(now) != now;
}

}  // namespace minimal

using namespace minimal;

int AIEC_get_total_events(const AISRV_service_info* service, uint16_t* count) {
  if (count == nullptr || listedService(service) == nullptr) return kFailure;
  *count = kEvents;
  return kSuccess;
}

int AIEC_get_first_n_events(const AISRV_service_info* record, AIEC_event_info* events,
                            uint16_t count, uint16_t* copied) {
  const Service* const service = listedService(record);
  if (service == nullptr || events == nullptr || copied == nullptr) return kFailure;
  *copied = copyEvents(*service, 0, events, count);
  return kSuccess;
}

int AIEC_get_next_n_events(const AIEC_event_key* previous, AIEC_event_info* events, uint16_t count,
                           uint16_t* copied, uint32_t /*direction*/) {
  if (previous == nullptr || events == nullptr || copied == nullptr) return kFailure;
  const Service* const service = listedService(previous->service_rec, previous->input_source);
  if (service == nullptr || previous->event_index >= kEvents) return kFailure;
  *copied = copyEvents(*service, previous->event_index + 1, events, count);
  return kSuccess;
}

// Fails: no event is rated in several systems.
int AIEC_get_multiple_event_rating_string(const AIEC_event_key* /*event*/,
                                          multiple_lang_t* /*text*/) {
  return kFailure;
}

// Allows every programme.
int AIEC_check_rating(const AISRV_service_info* service) {
  return listedService(service) != nullptr ? 0 : -1;
}

int AIEC_get_event_description(const AIEC_event_key* event, multiple_lang_t* text) {
  const Programme* const content = programme(event);
  if (content == nullptr || text == nullptr) return kFailure;
  copyText(content->description, text);
  return kSuccess;
}
