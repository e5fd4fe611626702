#include "receiver/station/guide.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace atschost {
namespace {

constexpr uint8_t kPresentOffset = 18;  // leap seconds since 1980, of 2017 and later

// What was known of an instance stays where the new tables have nothing in its place, unless the
// instance is gone or has been received in full.
std::bitset<256> staying(const std::vector<uint8_t>& announced,
                         const std::vector<uint8_t>& settled) {
  std::bitset<256> instances;
  for (const uint8_t instance : announced) instances.set(instance);
  for (const uint8_t instance : settled) instances.reset(instance);
  return instances;
}

// What is known of a carrier once new tables were received.
GuideTables merge(const GuideTables& old, const GuideTables& received) {
  if (!received.mgt_seen) return old;
  GuideTables merged = received;
  size_t size = 0;
  std::array<size_t, 256> sources{};  // by instance
  for (const auto& [key, events] : received.eits) {
    size += size_of(events);
    ++sources[key.first];
  }
  for (const auto& [instance, texts] : received.etts)
    for (const auto& [id, text] : texts) size += size_of_text(text);
  // Tables that keep changing their place would pile up.
  const auto fits = [&](size_t more) {
    if (size + more > kMaxGuideSize) return false;
    size += more;
    return true;
  };

  const auto eits = staying(received.announced_eits, received.settled_eits);
  for (const auto& [key, events] : old.eits) {
    if (!eits[key.first] || merged.eits.count(key)) continue;
    if (sources[key.first] >= kMaxGuideSources || !fits(size_of(events))) continue;
    ++sources[key.first];
    merged.eits.emplace(key, events);
  }
  const auto etts = staying(received.announced_etts, received.settled_etts);
  for (const auto& [instance, texts] : old.etts) {
    if (!etts[instance]) continue;
    GuideTables::Texts& kept = merged.etts[instance];
    for (const auto& [id, text] : texts)
      if (!kept.count(id) && fits(size_of_text(text))) kept.emplace(id, text);
  }
  return merged;
}

uint32_t etm_id(uint16_t source_id, uint16_t event_id) {
  return uint32_t{source_id} << 16 | uint32_t{event_id} << 2 | 2;
}

using Schedule = std::map<uint16_t, std::shared_ptr<const ShownEvents>>;  // by source id

Schedule make_schedule(const GuideTables& tables, uint8_t offset) {
  std::unordered_map<uint32_t, const std::string*> descriptions;  // by ETM_id
  for (const auto& [instance, texts] : tables.etts)
    for (const auto& [id, text] : texts)
      if (!text.empty()) descriptions.emplace(id, &text);

  std::map<uint16_t, ShownEvents> services;
  std::set<std::tuple<uint16_t, uint16_t, uint32_t>> known;
  for (const auto& [key, events] : tables.eits) {
    const uint16_t source_id = key.second;
    ShownEvents& shown = services[source_id];
    for (const GuideEvent& event : events) {
      // An event that passes the end of its segment is in the next one's table too.
      if (!known.emplace(source_id, event.event_id, event.start).second) continue;
      ShownEvent& added = shown.emplace_back();
      added.event = event;
      added.start = SystemTime{event.start, offset}.unix_seconds();
      const auto text = descriptions.find(etm_id(source_id, event.event_id));
      if (text != descriptions.end()) added.description = *text->second;
    }
  }
  Schedule schedule;
  for (auto& [source_id, shown] : services) {
    std::stable_sort(shown.begin(), shown.end(),
                     [](const ShownEvent& a, const ShownEvent& b) { return a.start < b.start; });
    schedule.emplace(source_id, std::make_shared<const ShownEvents>(std::move(shown)));
  }
  return schedule;
}

bool same_events(const ShownEvents& a, const ShownEvents& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const ShownEvent& left, const ShownEvent& right) {
                      return left.start == right.start && left.event == right.event;
                    });
}

// The descriptions there are, with the events they describe.
bool same_texts(const ShownEvents& a, const ShownEvents& b) {
  const auto texts = [](const ShownEvents& events) {
    std::vector<std::tuple<uint32_t, uint16_t, std::string_view>> list;
    for (const ShownEvent& e : events)
      if (!e.description.empty()) list.emplace_back(e.start, e.event.event_id, e.description);
    return list;
  };
  return texts(a) == texts(b);
}

// Never destroyed: a thread may ask during exit.
const std::shared_ptr<const ShownEvents>& nothing() {
  static const auto& empty =
      *new std::shared_ptr<const ShownEvents>(std::make_shared<const ShownEvents>());
  return empty;
}

const std::shared_ptr<const ShownEvents>& of_source(const Schedule& schedule, uint16_t source_id) {
  const auto found = schedule.find(source_id);
  return found == schedule.end() ? nothing() : found->second;
}

}  // namespace

struct Guide::Carrier {
  GuideTables tables;
  std::optional<uint8_t> gps_utc_offset;
  Schedule schedule;
};

Guide::Change Guide::update(uint32_t source, uint32_t frequency, const GuideTables& tables,
                            std::optional<uint8_t> gps_utc_offset) {
  std::lock_guard<std::mutex> update_lock(update_mutex_);
  std::shared_ptr<const Carrier> old;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = carriers_.find({source, frequency});
    if (found != carriers_.end()) old = found->second;
  }
  if (!old) old = std::make_shared<const Carrier>();

  auto carrier = std::make_shared<Carrier>();
  carrier->tables = merge(old->tables, tables);
  carrier->gps_utc_offset = gps_utc_offset ? gps_utc_offset : old->gps_utc_offset;
  carrier->schedule =
      make_schedule(carrier->tables, carrier->gps_utc_offset.value_or(kPresentOffset));

  Change change;
  std::set<uint16_t> source_ids;
  for (const auto& [source_id, events] : old->schedule) source_ids.insert(source_id);
  for (const auto& [source_id, events] : carrier->schedule) source_ids.insert(source_id);
  for (const uint16_t source_id : source_ids) {
    const ShownEvents& before = *of_source(old->schedule, source_id);
    const ShownEvents& after = *of_source(carrier->schedule, source_id);
    if (!same_events(before, after)) change.events.push_back(source_id);
    if (!same_texts(before, after)) change.texts.push_back(source_id);
  }
  std::lock_guard<std::mutex> lock(mutex_);
  carriers_[{source, frequency}] = std::move(carrier);
  return change;
}

std::shared_ptr<const ShownEvents> Guide::events(uint32_t source, uint32_t frequency,
                                                 uint16_t source_id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = carriers_.find({source, frequency});
  return found == carriers_.end() ? nothing() : of_source(found->second->schedule, source_id);
}

std::vector<uint16_t> Guide::source_ids(uint32_t source) const {
  std::set<uint16_t> ids;
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& [key, carrier] : carriers_) {
    if (std::get<0>(key) != source) continue;
    for (const auto& [source_id, events] : carrier->schedule)
      if (!events->empty()) ids.insert(source_id);
  }
  return {ids.begin(), ids.end()};
}

}  // namespace atschost
