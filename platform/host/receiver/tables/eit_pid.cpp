#include "receiver/tables/eit_pid.h"

#include <algorithm>
#include <iterator>

#include "aiec.h"
#include "receiver/tables/event_descriptors.h"
#include "receiver/tables/psip_text.h"

namespace atschost {
namespace {

constexpr const char* kBrokenDescriptor = "EIT descriptor passes its end";

// Reads the events of a section. Returns null or the fault. The events are of use without a fault
// and with kBrokenDescriptor.
const char* readEvents(ByteReader in, GuideTables::Eit& events) {
  if (in.u8() != 0) return "EIT of an unknown protocol version";
  bool sound = true;
  for (unsigned count = in.u8(); count > 0; --count) {
    GuideEvent event;
    event.eventId = in.u16() & 0x3FFF;
    event.start = in.u32();
    event.duration = in.u24() & 0x0FFFFF;  // without ETM_location: ETM_id identifies a text
    const ByteReader title = in.part(in.u8());
    event.title = readText(title.data(), title.left(), AIEC_DESCRIPTION_SIZE);
    const ByteReader descriptors = in.part(in.u16() & 0x0FFF);
    if (in.passedEnd()) return "EIT event passes the end";
    sound = readEventDescriptors(descriptors, event) && sound;
    events.push_back(std::move(event));
  }
  return sound ? nullptr : kBrokenDescriptor;
}

// Identifies a section on its PID.
uint32_t keyOf(uint8_t index, const Section& section) {
  return uint32_t{index} << 24 | uint32_t{section.extension} << 8 | section.number;
}

}  // namespace

EitPid::~EitPid() {
  for (const auto& [key, table] : tables_) storage().release(sizeOf(table));
}

size_t EitPid::sizeOf(const Pending& pending) {
  size_t size = kNodeSize;
  for (const auto& [number, part] : pending.parts)
    size += kNodeSize + atschost::sizeOf(part.events);
  return size;
}

size_t EitPid::sizeOf(const Table& table) {
  return sizeof(table) + kNodeSize + sizeof(uint32_t) * table.crcs.size() +
         atschost::sizeOf(*table.events) + (table.pending ? sizeOf(*table.pending) : 0);
}

bool EitPid::follow(const std::vector<Announced>& instances) {
  const bool changed = GuidePid::follow(instances);
  const auto count = static_cast<uint8_t>(instances.size());
  for (auto it = tables_.lower_bound({count, 0}); it != tables_.end();) it = erase(it);
  return changed;
}

const char* EitPid::push(const Section& section) {
  const uint16_t source = section.extension;
  std::optional<uint8_t> free;
  for (const uint8_t index : candidates(section)) {
    const auto known = tables_.find({index, source});
    std::optional<uint32_t> crc;
    if (known != tables_.end()) crc = receivedCrc(known->second, section);
    if (crc == section.crc) {
      note(keyOf(index, section), false);
      return nullptr;
    }
    if (!free && !crc) free = index;
  }
  if (!free) return "EIT differs from another of its version";

  GuideTables::Eit events;
  const char* const fault = readEvents(section.body(), events);
  if (fault && fault != kBrokenDescriptor) return fault;
  auto table = tables_.find({*free, source});
  if (table == tables_.end()) {
    if (tables_.size() >= kMaxGuideSources * instances().size()) return "EIT has too many sources";
    if (!storage().hasRoomFor(1)) return GuideStorage::kFull;
    table = tables_.emplace(std::pair{*free, source}, Table{}).first;
    storage().take(sizeOf(table->second));
  }
  if (const char* full = takePart(table->second, section, std::move(events))) return full;
  note(keyOf(*free, section), true);
  return fault;
}

void EitPid::addTo(GuideTables& guide) const {
  for (const auto& [key, table] : tables_) {
    const auto [index, source] = key;
    if (table.round != 0)
      guide.eits.emplace(std::pair{instances()[index].instance, source}, table.events);
  }
}

// Returns the indexes of the instances that a section may belong to: those of its version, all if
// none has its version.
std::vector<uint8_t> EitPid::candidates(const Section& section) const {
  std::vector<uint8_t> all, ofVersion;
  for (size_t index = 0; index < instances().size(); ++index) {
    // The MGT can announce 128 instances.
    all.push_back(static_cast<uint8_t>(index));
    if (instances()[index].version == section.version) ofVersion.push_back(all.back());
  }
  return ofVersion.empty() ? all : ofVersion;
}

// Returns the CRC with which the table received the section's number and version; none before.
std::optional<uint32_t> EitPid::receivedCrc(const Table& table, const Section& section) const {
  if (table.round == round() && table.version == section.version &&
      table.crcs.size() == section.lastNumber + 1u)
    return table.crcs[section.number];
  if (!table.pending || !table.pending->isOf(section)) return std::nullopt;
  const auto part = table.pending->parts.find(section.number);
  if (part == table.pending->parts.end()) return std::nullopt;
  return part->second.crc;
}

// Adds a section to the pending version of a table, and commits the version if it is whole. Returns
// null, or the fault for which the section was dropped.
const char* EitPid::takePart(Table& table, const Section& section, GuideTables::Eit events) {
  if (table.pending && !table.pending->isOf(section)) {
    storage().release(sizeOf(*table.pending));
    table.pending.reset();
    --pendings_;
  }
  const size_t size = kNodeSize + atschost::sizeOf(events);
  if (!storage().hasRoomFor(size)) return GuideStorage::kFull;
  if (!table.pending) {
    table.pending = Pending{section.version, section.lastNumber, {}};
    storage().take(sizeOf(*table.pending));
    ++pendings_;
  }
  table.pending->parts.emplace(section.number, Pending::Part{section.crc, std::move(events)});
  storage().take(size);
  if (table.pending->parts.size() == section.lastNumber + 1u) commit(table);
  return nullptr;
}

// Puts the pending version, which is whole, in the place of the former one.
void EitPid::commit(Table& table) {
  storage().release(sizeOf(table));
  Table whole;
  whole.round = round();
  whole.version = table.pending->version;
  GuideTables::Eit events;
  for (auto& [number, part] : table.pending->parts) {
    whole.crcs.push_back(part.crc);
    std::move(part.events.begin(), part.events.end(), std::back_inserter(events));
  }
  events.shrink_to_fit();
  if (table.round == 0 || !(*table.events == events)) storage().noteChange();
  whole.events = std::make_shared<const GuideTables::Eit>(std::move(events));
  table = std::move(whole);
  storage().take(sizeOf(table));
  --pendings_;
}

EitPid::Tables::iterator EitPid::erase(Tables::iterator table) {
  storage().release(sizeOf(table->second));
  if (table->second.pending) --pendings_;
  return tables_.erase(table);
}

void EitPid::sweep() {
  for (auto it = tables_.begin(); it != tables_.end();) {
    const bool stays = it->second.round == round() || it->second.pending;
    it = stays ? std::next(it) : erase(it);
  }
  storage().noteChange();
}

}  // namespace atschost
