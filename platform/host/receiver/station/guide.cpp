#include "receiver/station/guide.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "process/immortal.h"
#include "receiver/tables/system_time.h"

namespace atschost {
namespace {

constexpr uint8_t kPresentOffset = 18;  // leap seconds since 1980, from 2017 on

// Returns the instances whose old tables stay where the new tables have no replacement: those that
// are still announced and have not been received in full.
std::bitset<256> staying(const std::vector<uint8_t>& announced,
                         const std::vector<uint8_t>& settled) {
  std::bitset<256> instances;
  for (const uint8_t instance : announced) instances.set(instance);
  for (const uint8_t instance : settled) instances.reset(instance);
  return instances;
}

// Returns the tables of a carrier after new tables were received.
GuideTables merge(const GuideTables& old, const GuideTables& received) {
  if (!received.mgtSeen) return old;
  GuideTables merged = received;
  size_t size = 0;
  std::array<size_t, 256> sources{};  // by instance
  for (const auto& [key, events] : received.eits) {
    size += sizeOf(*events);
    ++sources[key.first];
  }
  for (const auto& [instance, texts] : received.etts)
    for (const auto& [id, text] : texts) size += sizeOfText(text);
  // Limits the size: tables that keep changing their key would accumulate.
  const auto fits = [&](size_t more) {
    if (size + more > kMaxGuideSize) return false;
    size += more;
    return true;
  };

  const auto eits = staying(received.announcedEits, received.settledEits);
  for (const auto& [key, events] : old.eits) {
    if (!eits[key.first] || merged.eits.count(key)) continue;
    if (sources[key.first] >= kMaxGuideSources || !fits(sizeOf(*events))) continue;
    ++sources[key.first];
    merged.eits.emplace(key, events);
  }
  const auto etts = staying(received.announcedEtts, received.settledEtts);
  for (const auto& [instance, texts] : old.etts) {
    if (!etts[instance]) continue;
    GuideTables::Texts& kept = merged.etts[instance];
    for (const auto& [id, text] : texts)
      if (!kept.count(id) && fits(sizeOfText(text))) kept.emplace(id, text);
  }
  return merged;
}

uint32_t etmId(uint16_t sourceId, uint16_t eventId) {
  return uint32_t{sourceId} << 16 | uint32_t{eventId} << 2 | 2;
}

using Schedule = std::map<uint16_t, ShownEvents>;  // by source id

// The schedule refers to the tables.
Schedule makeSchedule(const GuideTables& tables, uint8_t offset) {
  std::unordered_map<uint32_t, std::string_view> descriptions;  // by ETM_id
  for (const auto& [instance, texts] : tables.etts)
    for (const auto& [id, text] : texts)
      if (!text.empty()) descriptions.emplace(id, text);

  Schedule schedule;
  std::set<std::tuple<uint16_t, uint16_t, uint32_t>> known;
  for (const auto& [key, events] : tables.eits) {
    const uint16_t sourceId = key.second;
    ShownEvents& shown = schedule[sourceId];
    for (const GuideEvent& event : *events) {
      // An event that extends beyond its segment is also in the table of the next segment.
      if (!known.emplace(sourceId, event.eventId, event.start).second) continue;
      const auto text = descriptions.find(etmId(sourceId, event.eventId));
      shown.push_back({&event, SystemTime{event.start, offset}.unixSeconds(),
                       text != descriptions.end() ? text->second : std::string_view()});
    }
  }
  for (auto& [sourceId, shown] : schedule) {
    std::stable_sort(shown.begin(), shown.end(),
                     [](const ShownEvent& a, const ShownEvent& b) { return a.start < b.start; });
    shown.shrink_to_fit();
  }
  return schedule;
}

bool sameEvents(const ShownEvents& a, const ShownEvents& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const ShownEvent& left, const ShownEvent& right) {
                      return left.start == right.start &&
                             (left.event == right.event || *left.event == *right.event);
                    });
}

// Compares the descriptions and the events that they describe.
bool sameTexts(const ShownEvents& a, const ShownEvents& b) {
  const auto texts = [](const ShownEvents& events) {
    std::vector<std::tuple<uint32_t, uint16_t, std::string_view>> list;
    for (const ShownEvent& e : events)
      if (!e.description.empty()) list.emplace_back(e.start, e.event->eventId, e.description);
    return list;
  };
  return texts(a) == texts(b);
}

// Never destroyed: threads may call it during exit.
const ShownEvents& nothing() {
  static const ShownEvents& empty = immortal<ShownEvents>();
  return empty;
}

const ShownEvents& ofSource(const Schedule& schedule, uint16_t sourceId) {
  const auto found = schedule.find(sourceId);
  return found == schedule.end() ? nothing() : found->second;
}

}  // namespace

struct Guide::Carrier {
  GuideTables tables;
  std::optional<uint8_t> gpsUtcOffset;
  Schedule schedule;  // refers to `tables`
};

Guide::Change Guide::update(uint32_t source, uint32_t frequency, const GuideTables& tables,
                            std::optional<uint8_t> gpsUtcOffset) {
  const MutexLock updateLock(updateMutex_);
  std::shared_ptr<const Carrier> old;
  {
    const MutexLock lock(mutex_);
    const auto found = carriers_.find({source, frequency});
    if (found != carriers_.end()) old = found->second;
  }
  if (!old) old = std::make_shared<const Carrier>();

  auto carrier = std::make_shared<Carrier>();
  carrier->tables = merge(old->tables, tables);
  carrier->gpsUtcOffset = gpsUtcOffset ? gpsUtcOffset : old->gpsUtcOffset;
  carrier->schedule = makeSchedule(carrier->tables, carrier->gpsUtcOffset.value_or(kPresentOffset));

  Change change;
  std::set<uint16_t> sourceIds;
  for (const auto& [source_id, events] : old->schedule) sourceIds.insert(source_id);
  for (const auto& [source_id, events] : carrier->schedule) sourceIds.insert(source_id);
  for (const uint16_t sourceId : sourceIds) {
    const ShownEvents& before = ofSource(old->schedule, sourceId);
    const ShownEvents& after = ofSource(carrier->schedule, sourceId);
    if (!sameEvents(before, after)) change.events.push_back(sourceId);
    if (!sameTexts(before, after)) change.texts.push_back(sourceId);
  }
  const MutexLock lock(mutex_);
  carriers_[{source, frequency}] = std::move(carrier);
  return change;
}

void Guide::forget(uint32_t source, uint32_t frequency) {
  const MutexLock lock(mutex_);
  carriers_.erase({source, frequency});
}

std::shared_ptr<const ShownEvents> Guide::events(uint32_t source, uint32_t frequency,
                                                 uint16_t sourceId) const {
  const MutexLock lock(mutex_);
  const auto found = carriers_.find({source, frequency});
  const auto carrier = found == carriers_.end() ? nullptr : found->second;
  return {carrier, carrier ? &ofSource(carrier->schedule, sourceId) : &nothing()};
}

std::vector<uint16_t> Guide::sourceIds(uint32_t source) const {
  std::set<uint16_t> ids;
  const MutexLock lock(mutex_);
  for (const auto& [key, carrier] : carriers_) {
    if (std::get<0>(key) != source) continue;
    for (const auto& [source_id, events] : carrier->schedule)
      if (!events.empty()) ids.insert(source_id);
  }
  return {ids.begin(), ids.end()};
}

}  // namespace atschost
