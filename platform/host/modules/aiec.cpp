#include "aiec.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <unordered_map>

#include "modules/call.h"
#include "modules/host.h"
#include "process/immortal.h"
#include "process/mutex.h"
#include "receiver/tables/psip_text.h"

using atschost::copyText;
using atschost::hostReceiver;
using atschost::Service;
using atschost::ShownEvent;
using atschost::ShownEvents;
using atschost::sourceOfId;
using atschost::statusOf;

namespace {

using Events = std::shared_ptr<const ShownEvents>;

// Finds the guide of a service. Callers request event by event, so the service list is searched
// only once after each change of the list.
class ServiceIndex {
 public:
  struct Place {
    uint32_t frequency;
    uint16_t sourceId;
  };

  std::optional<Place> find(uint32_t source, uint32_t record) {
    const auto& services = hostReceiver().services();
    const atschost::MutexLock lock(mutex_);
    const unsigned generation = services.generation();
    if (generation_ != generation) {
      std::unordered_map<uint64_t, Place> places;
      for (const uint32_t listed : {AI_INPUT_TERRESTRIAL, AI_INPUT_CABLE}) {
        services.visit(listed, [&](const Service& service) {
          places[key(listed, service.record)] = {service.key.frequency, service.sourceId};
          return true;
        });
      }
      places_ = std::move(places);
      generation_ = generation;
    }
    const auto found = places_.find(key(source, record));
    if (found == places_.end()) return std::nullopt;
    return found->second;
  }

 private:
  static uint64_t key(uint32_t source, uint32_t record) { return uint64_t{source} << 32 | record; }

  atschost::Mutex mutex_;
  std::optional<unsigned> generation_ GUARDED_BY(mutex_);
  std::unordered_map<uint64_t, Place> places_ GUARDED_BY(mutex_);
};

// Never destroyed: threads may call it during exit.
ServiceIndex& serviceIndex() {
  static ServiceIndex& index = atschost::immortal<ServiceIndex>();
  return index;
}

// Returns null when the service is not listed.
Events eventsOf(uint32_t inputSource, uint32_t record) {
  const uint32_t source = sourceOfId(inputSource);
  const auto place = serviceIndex().find(source, record);
  if (!place) return nullptr;
  return hostReceiver().guide().events(source, place->frequency, place->sourceId);
}

// Returns null when there is no such event.
const ShownEvent* eventOf(const AIEC_event_key& key, const Events& events) {
  return events && key.event_index < events->size() ? &(*events)[key.event_index] : nullptr;
}

void copyEvent(const ShownEvent& shown, const AIEC_event_key& key, bool blocked,
               AIEC_event_info& record) {
  const multiple_lang_t name = record.name;
  const multiple_lang_t rating = record.rating;
  record = {};
  record.key = key;
  record.event_id = shown.event->eventId;
  record.multi_rating = shown.event->otherRatings.empty() ? 0 : 1;
  record.start_time = shown.start;
  record.duration = shown.event->duration;
  record.name = name;
  copyText(shown.event->title, record.name);
  record.rating = rating;
  copyText(shown.event->rating, record.rating);
  record.parental_status = blocked ? 1 : 0;
  record.captions = shown.event->captions ? 1 : 0;
  const auto& genres = shown.event->genres;
  record.genre_count = static_cast<uint8_t>(std::min<size_t>(genres.size(), AIEC_MAX_GENRES));
  std::copy_n(genres.begin(), record.genre_count, record.genres);
}

// Copies the events of a service from position `first` on. Returns false when the service is not
// listed.
bool copyEvents(uint32_t serviceRec, uint32_t inputSource, uint64_t first, AIEC_event_info* records,
                uint16_t count, uint16_t& copied) {
  const Events events = eventsOf(inputSource, serviceRec);
  if (!events) return false;
  copied = 0;
  const auto isBlocked = hostReceiver().viewing().blockedEvents();
  for (uint64_t i = first; i < events->size() && copied < count; ++i) {
    const auto index = static_cast<uint32_t>(i);
    const ShownEvent& shown = (*events)[index];
    copyEvent(shown, {serviceRec, inputSource, index}, isBlocked(*shown.event), records[copied++]);
  }
  return true;
}

}  // namespace

int AIEC_get_total_events(const AISRV_service_info* service, uint16_t* count) {
  return statusOf(__func__, [&] {
    if (!service || !count) return false;
    const Events events =
        eventsOf(service->service_id.input_source, service->service_id.service_rec);
    if (!events) return false;
    *count = static_cast<uint16_t>(std::min<size_t>(events->size(), UINT16_MAX));
    return true;
  });
}

int AIEC_get_first_n_events(const AISRV_service_info* service, AIEC_event_info* events,
                            uint16_t count, uint16_t* copied) {
  return statusOf(__func__, [&] {
    if (!service || !copied || (!events && count > 0)) return false;
    return copyEvents(service->service_id.service_rec, service->service_id.input_source, 0, events,
                      count, *copied);
  });
}

int AIEC_get_next_n_events(const AIEC_event_key* previous, AIEC_event_info* events, uint16_t count,
                           uint16_t* copied, uint32_t direction) {
  return statusOf(__func__, [&] {
    if (!previous || !copied || (!events && count > 0) || direction != 1) return false;
    // `previous` may point into a record that is about to be filled.
    const AIEC_event_key key = *previous;
    return copyEvents(key.service_rec, key.input_source, uint64_t{key.event_index} + 1, events,
                      count, *copied);
  });
}

int AIEC_get_multiple_event_rating_string(const AIEC_event_key* event, multiple_lang_t* text) {
  return statusOf(__func__, [&] {
    if (!event || !text) return false;
    const Events events = eventsOf(event->input_source, event->service_rec);
    const ShownEvent* shown = eventOf(*event, events);
    if (!shown) return false;
    const atschost::GuideEvent& e = *shown->event;
    copyText(e.otherRatings.empty() ? e.rating : e.otherRatings, *text);
    return true;
  });
}

int AIEC_check_rating(const AISRV_service_info* service) {
  int verdict = -1;
  const auto check = [&] {
    const auto now = service ? hostReceiver().player().onNow(service->service_id) : std::nullopt;
    if (!now) return false;
    if (!now->enabled || now->unlocked)
      verdict = 0;
    else if (!now->verdict.rated)
      verdict = AIPC_UNRATED;
    else if (now->byStreams)
      verdict = AIPC_BLOCKED_BY_STATUS;
    else
      verdict = now->verdict.blocked ? AIPC_BLOCKED : 0;
    return true;
  };
  if (atschost::runBody(__func__, check) != 0) verdict = -1;
  atschost::logCall(__func__, verdict, service ? service->service_id.service_rec : 0);
  return verdict;
}

int AIEC_get_event_description(const AIEC_event_key* event, multiple_lang_t* text) {
  return statusOf(__func__, [&] {
    if (!event || !text) return false;
    const Events events = eventsOf(event->input_source, event->service_rec);
    const ShownEvent* shown = eventOf(*event, events);
    if (!shown) return false;
    copyText(shown->description, *text);
    return true;
  });
}
