#include "receiver/tables/psip_decoder.h"

#include <algorithm>
#include <bitset>
#include <iterator>
#include <utility>

#include "aiec.h"
#include "receiver/stream/byte_reader.h"
#include "receiver/stream/transport.h"
#include "receiver/tables/event_descriptors.h"
#include "receiver/tables/psip_text.h"
#include "receiver/tables/table_ids.h"

namespace atschost {
namespace {

constexpr const char* kTooMuch = "guide tables are more than is kept";

// Text as it stands in fields of plain characters.
std::string characters(ByteReader field) {
  return {reinterpret_cast<const char*>(field.data()), field.left()};
}

std::string textOf(ByteReader field, size_t maxBytes = AIEC_DESCRIPTION_SIZE) {
  return readText(field.data(), field.left(), maxBytes);
}

// How the tables of one kind come round on one PID.
class Carousel {
 public:
  void restart() { *this = {}; }

  // Told of each section, which `key` tells from the others of the PID. Returns whether the PID has
  // just come to be settled.
  bool note(uint32_t key, bool isNew) {
    if (isNew || !mark_) {
      mark_ = key;
      rounds_ = 0;
    }
    if (isNew) return false;
    repeated_ = true;
    const bool wasSettled = settled_;
    if (key == mark_ && ++rounds_ >= 2) settled_ = true;
    return settled_ && !wasSettled;
  }

  // A pass through the stream ends. Returns whether the PID has just come to be settled.
  bool endPass() {
    if (++passes_ < 2) return false;
    awaited_ = false;
    return !std::exchange(settled_, true);
  }
  // Nothing is waited for where nothing came.
  void giveUpSilent() { awaited_ = awaited_ && mark_; }

  // A section that was received came again.
  bool repeated() const { return repeated_; }
  // More may come.
  bool awaited() const { return awaited_; }
  // Nothing new came while some section came again twice, or all was seen: what did not come is not
  // on the air.
  bool settled() const { return settled_; }

 private:
  std::optional<uint32_t> mark_;  // the last new one
  unsigned rounds_ = 0;           // since it was new
  unsigned passes_ = 0;           // that have ended
  bool awaited_ = true;
  bool repeated_ = false;
  bool settled_ = false;
};

// What the MGT says of one instance of a table.
struct Announced {
  uint8_t instance;
  uint8_t version;
  bool operator==(const Announced& other) const {
    return instance == other.instance && version == other.version;
  }
};

// One kind of guide table on one PID. Tables stay with their PID when the MGT, every three hours,
// numbers the instances anew.
struct GuidePid {
  std::vector<Announced> instances;  // ascending
  // Counts the changes that the MGT announced. A table of an older round is shown until it is
  // received again or found to be gone.
  unsigned round = 1;
  Carousel carousel;
};

struct EitTable {
  unsigned round = 0;  // in which `events` came
  uint8_t version = 0;
  std::vector<uint32_t> crcs;  // of its sections
  GuideTables::Eit events;

  struct Section {
    uint32_t crc;
    GuideTables::Eit events;
  };
  // The next version, while sections of it are missing.
  struct Pending {
    uint8_t version;
    uint8_t last;
    std::map<uint8_t, Section> sections;
  };
  std::optional<Pending> pending;
};

struct EitPid : GuidePid {
  // A PID carries one instance. Should one carry several, the n-th table of a source that differs
  // counts as that of the n-th instance.
  std::map<std::pair<uint8_t, uint16_t>, EitTable> tables;  // by n and source id
  size_t pending = 0;
};

struct EttText {
  unsigned round;
  uint8_t version;
  uint32_t crc;
  std::string text;
};

struct EttPid : GuidePid {
  std::map<uint32_t, EttText> texts;  // by ETM_id
};

size_t sizeOf(const EitTable::Pending& pending) {
  size_t size = kNodeSize;
  for (const auto& [number, section] : pending.sections) size += kNodeSize + sizeOf(section.events);
  return size;
}
size_t sizeOf(const EitTable& table) {
  return sizeof(table) + kNodeSize + 4 * table.crcs.size() + sizeOf(table.events) +
         (table.pending ? sizeOf(*table.pending) : 0);
}
size_t sizeOf(const EttText& text) { return sizeOfText(text.text); }

size_t size_of(const EitPid& pid) {
  size_t size = 0;
  for (const auto& [key, table] : pid.tables) size += sizeOf(table);
  return size;
}
size_t size_of(const EttPid& pid) {
  size_t size = 0;
  for (const auto& [id, text] : pid.texts) size += sizeOf(text);
  return size;
}

using PidPlan = std::map<uint16_t, std::vector<Announced>>;  // by PID

// Takes over what the MGT says of one kind of table. Returns whether the instances are others.
template <typename Pids>
bool follow(const PidPlan& plan, Pids& pids, size_t& kept) {
  bool changed = false;
  for (auto it = pids.begin(); it != pids.end();) {
    if (plan.count(it->first)) {
      ++it;
      continue;
    }
    kept -= size_of(it->second);
    it = pids.erase(it);
    changed = true;
  }
  for (const auto& [number, instances] : plan) {
    auto& pid = pids[number];
    if (pid.instances == instances) continue;
    changed = true;
    const auto versions = [](const std::vector<Announced>& announced) {
      std::vector<uint8_t> list;
      for (const Announced& a : announced) list.push_back(a.version);
      return list;
    };
    if (versions(pid.instances) != versions(instances)) {
      ++pid.round;
      pid.carousel.restart();
    }
    pid.instances = instances;
  }
  return changed;
}

}  // namespace

struct PsipDecoder::Impl {
  const char* pushMgt(const Section& section);
  const char* pushStt(const Section& section);
  const char* pushRrt(const Section& section);
  const char* pushEit(EitPid& pid, const Section& section);
  const char* pushEtt(EttPid& pid, const Section& section);
  const char* pushAlert(const Section& section);

  const char* takeEvents(EitPid& pid, EitTable& table, const Section& section,
                         GuideTables::Eit events);
  void commit(EitPid& pid, EitTable& table);
  void sweep(EitPid& pid);
  void sweep(EttPid& pid);
  void buildGuide();
  bool checkComplete() const;

  std::bitset<0x2000> wanted;
  std::optional<uint32_t> mgtCrc;
  std::map<uint16_t, EitPid> eits;
  std::map<uint16_t, EttPid> etts;
  size_t kept = 0;

  bool complete = false;
  bool guideChanged = false;  // since it was last taken
  bool guideStale = false;    // `guide` is no longer what was received
  GuideTables guide;

  std::optional<SystemTime> time;
  std::optional<uint8_t> offset;
  std::optional<EmergencyAlert> alert;
  std::vector<RatingRegionTable> regions;
  std::map<uint8_t, std::vector<uint8_t>> knownRegions;
};

const char* PsipDecoder::Impl::pushMgt(const Section& section) {
  if (mgtCrc == section.crc) return nullptr;
  if (section.lastNumber != 0) return "MGT has several sections";
  ByteReader in = section.body();
  if (in.u8() != 0) return "MGT of an unknown protocol version";
  PidPlan eitPlan, ettPlan;
  std::bitset<128> knownEits, knownEtts;
  for (unsigned tables = in.u16(); tables > 0 && !in.passedEnd(); --tables) {
    const uint16_t type = in.u16();
    const uint16_t pid = in.u16() & 0x1FFF;
    const auto version = static_cast<uint8_t>(in.u8() & 0x1F);
    in.u32();  // number_bytes
    in.part(in.u16() & 0x0FFF);
    const bool isEit = (type & 0xFF80) == 0x0100;
    const bool isEtt = (type & 0xFF80) == 0x0200;
    if (in.passedEnd() || !(isEit || isEtt)) continue;
    if (pid < 0x0010 || pid >= kPsipBasePid) continue;
    const auto instance = static_cast<uint8_t>(type & 0x7F);
    auto& known = isEit ? knownEits : knownEtts;
    if (!known[instance]) (isEit ? eitPlan : ettPlan)[pid].push_back({instance, version});
    known.set(instance);
  }
  in.part(in.u16() & 0x0FFF);
  if (in.passedEnd()) return "MGT passes the end";

  for (PidPlan* plan : {&eitPlan, &ettPlan})
    for (auto& [pid, instances] : *plan)
      std::sort(instances.begin(), instances.end(),
                [](const Announced& a, const Announced& b) { return a.instance < b.instance; });
  bool changed = !mgtCrc;
  mgtCrc = section.crc;
  changed = follow(eitPlan, eits, kept) || changed;
  changed = follow(ettPlan, etts, kept) || changed;
  for (auto& [number, pid] : eits) {
    // Tables of instances that the PID no longer carries.
    const auto count = static_cast<uint8_t>(pid.instances.size());
    for (auto it = pid.tables.lower_bound({count, 0}); it != pid.tables.end();) {
      kept -= sizeOf(it->second);
      if (it->second.pending) --pid.pending;
      it = pid.tables.erase(it);
    }
  }
  wanted.reset();
  wanted.set(kPsipBasePid);
  for (const auto& [pid, tables] : eits) wanted.set(pid);
  for (const auto& [pid, texts] : etts) wanted.set(pid);
  guideChanged = guideChanged || changed;
  guideStale = guideStale || changed;
  return nullptr;
}

const char* PsipDecoder::Impl::pushStt(const Section& section) {
  ByteReader in = section.body();
  const uint8_t protocol = in.u8();
  SystemTime received;
  received.gpsSeconds = in.u32();
  received.gpsUtcOffset = in.u8();
  const uint8_t daylight = in.u8();
  received.daylightStatus = daylight & 0x80;
  received.daylightDayOfMonth = daylight & 0x1F;
  received.daylightHour = in.u8();
  if (in.passedEnd()) return "STT is too short";
  if (protocol != 0) return "STT of an unknown protocol version";
  time = received;
  offset = received.gpsUtcOffset;
  return nullptr;
}

const char* PsipDecoder::Impl::pushRrt(const Section& section) {
  const auto number = static_cast<uint8_t>(section.extension);
  const uint8_t* const end = section.bytes + section.size;
  std::vector<uint8_t>& known = knownRegions[number];
  if (std::equal(known.begin(), known.end(), section.bytes, end)) return nullptr;
  RatingRegionTable table;
  if (const char* fault = readRatingRegion(section, table.region)) return fault;
  known.assign(section.bytes, end);
  table.section = known;
  regions.erase(
      std::remove_if(regions.begin(), regions.end(),
                     [&](const RatingRegionTable& r) { return r.region.number == number; }),
      regions.end());
  regions.push_back(std::move(table));
  return nullptr;
}

const char* PsipDecoder::Impl::pushEit(EitPid& pid, const Section& section) {
  const uint16_t source = section.extension;
  // Which of the instances of the PID it may be: those of its version, else any.
  const size_t instances = pid.instances.size();
  const bool versionsTell =
      std::any_of(pid.instances.begin(), pid.instances.end(),
                  [&](const Announced& a) { return a.version == section.version; });
  std::optional<uint8_t> free;
  for (uint8_t n = 0; n < instances; ++n) {
    if (versionsTell && pid.instances[n].version != section.version) continue;
    const auto found = pid.tables.find({n, source});
    if (found == pid.tables.end()) {
      if (!free) free = n;
      continue;
    }
    const EitTable& table = found->second;
    const bool isCurrent = table.round == pid.round && table.version == section.version &&
                           table.crcs.size() == section.lastNumber + 1u;
    std::optional<uint32_t> pendingCrc;
    if (const auto& next = table.pending;
        next && next->version == section.version && next->last == section.lastNumber) {
      const auto found = next->sections.find(section.number);
      if (found != next->sections.end()) pendingCrc = found->second.crc;
    }
    if ((isCurrent && table.crcs[section.number] == section.crc) || pendingCrc == section.crc) {
      if (pid.carousel.note(uint32_t{n} << 24 | uint32_t{source} << 8 | section.number, false))
        sweep(pid);
      return nullptr;
    }
    if (!free && !isCurrent && !pendingCrc) free = n;
  }
  if (!free) return "EIT differs from another of its version";

  ByteReader in = section.body();
  if (in.u8() != 0) return "EIT of an unknown protocol version";
  GuideTables::Eit events;
  bool sound = true;
  for (unsigned count = in.u8(); count > 0; --count) {
    GuideEvent event;
    event.eventId = in.u16() & 0x3FFF;
    event.start = in.u32();
    event.duration = in.u24() & 0x0FFFFF;  // after ETM_location: texts are found by their id
    event.title = textOf(in.part(in.u8()));
    const ByteReader descriptors = in.part(in.u16() & 0x0FFF);
    if (in.passedEnd()) return "EIT event passes the end";
    sound = readEventDescriptors(descriptors, event) && sound;
    events.push_back(std::move(event));
  }

  auto found = pid.tables.find({*free, source});
  if (found == pid.tables.end()) {
    if (pid.tables.size() >= kMaxGuideSources * instances) return "EIT has too many sources";
    if (kept >= kMaxGuideSize) return kTooMuch;
    found = pid.tables.emplace(std::pair{*free, source}, EitTable{}).first;
    kept += sizeOf(found->second);
  }
  if (const char* fault = takeEvents(pid, found->second, section, std::move(events))) return fault;
  pid.carousel.note(uint32_t{*free} << 24 | uint32_t{source} << 8 | section.number, true);
  return sound ? nullptr : "EIT descriptor passes its end";
}

const char* PsipDecoder::Impl::takeEvents(EitPid& pid, EitTable& table, const Section& section,
                                          GuideTables::Eit events) {
  if (table.pending &&
      (table.pending->version != section.version || table.pending->last != section.lastNumber)) {
    kept -= sizeOf(*table.pending);
    table.pending.reset();
    --pid.pending;
  }
  const size_t size = kNodeSize + sizeOf(events);
  if (kept + size > kMaxGuideSize) return kTooMuch;
  if (!table.pending) {
    table.pending = EitTable::Pending{section.version, section.lastNumber, {}};
    kept += sizeOf(*table.pending);
    ++pid.pending;
  }
  table.pending->sections.emplace(section.number,
                                  EitTable::Section{section.crc, std::move(events)});
  kept += size;
  if (table.pending->sections.size() == section.lastNumber + 1u) commit(pid, table);
  return nullptr;
}

// The pending version is whole.
void PsipDecoder::Impl::commit(EitPid& pid, EitTable& table) {
  kept -= sizeOf(table);
  EitTable whole;
  whole.round = pid.round;
  whole.version = table.pending->version;
  for (auto& [number, section] : table.pending->sections) {
    whole.crcs.push_back(section.crc);
    std::move(section.events.begin(), section.events.end(), std::back_inserter(whole.events));
  }
  const bool changed = table.round == 0 || !(table.events == whole.events);
  table = std::move(whole);
  kept += sizeOf(table);
  --pid.pending;
  guideChanged = guideChanged || changed;
  guideStale = guideStale || changed;
}

const char* PsipDecoder::Impl::pushEtt(EttPid& pid, const Section& section) {
  ByteReader in = section.body();
  const uint8_t protocol = in.u8();
  const uint32_t id = in.u32();
  if (in.passedEnd()) return "ETT is too short";
  if (protocol != 0) return "ETT of an unknown protocol version";
  if ((id & 3) != 2) return nullptr;  // the text of a channel

  // Stations do send texts of their own under one table_id_extension: only the id tells.
  const auto found = pid.texts.find(id);
  if (found != pid.texts.end() && found->second.round == pid.round &&
      found->second.version == section.version) {
    if (found->second.crc != section.crc) return "ETT differs from another of its version";
    if (pid.carousel.note(id, false)) sweep(pid);
    return nullptr;
  }
  EttText text{pid.round, section.version, section.crc, textOf(in)};
  const size_t size = sizeOf(text);
  const size_t oldSize = found == pid.texts.end() ? 0 : sizeOf(found->second);
  if (kept - oldSize + size > kMaxGuideSize) return kTooMuch;
  kept = kept - oldSize + size;
  const bool changed = found == pid.texts.end() || found->second.text != text.text;
  pid.texts.insert_or_assign(id, std::move(text));
  pid.carousel.note(id, true);
  guideChanged = guideChanged || changed;
  guideStale = guideStale || changed;
  return nullptr;
}

// What was not received again since the MGT announced a change is no longer on the air.
void PsipDecoder::Impl::sweep(EitPid& pid) {
  for (auto it = pid.tables.begin(); it != pid.tables.end();) {
    if (it->second.round == pid.round || it->second.pending) {
      ++it;
      continue;
    }
    kept -= sizeOf(it->second);
    it = pid.tables.erase(it);
  }
  guideChanged = guideStale = true;
}

void PsipDecoder::Impl::sweep(EttPid& pid) {
  for (auto it = pid.texts.begin(); it != pid.texts.end();) {
    if (it->second.round == pid.round) {
      ++it;
      continue;
    }
    kept -= sizeOf(it->second);
    it = pid.texts.erase(it);
  }
  guideChanged = guideStale = true;
}

void PsipDecoder::Impl::buildGuide() {
  GuideTables built;
  built.mgtSeen = mgtCrc.has_value();
  for (const auto& [number, pid] : eits) {
    for (const Announced& a : pid.instances) {
      built.announcedEits.push_back(a.instance);
      if (pid.carousel.settled()) built.settledEits.push_back(a.instance);
    }
    for (const auto& [key, table] : pid.tables)
      if (table.round != 0)
        built.eits.emplace(std::pair{pid.instances[key.first].instance, key.second}, table.events);
  }
  for (const auto& [number, pid] : etts) {
    for (const Announced& a : pid.instances) {
      built.announcedEtts.push_back(a.instance);
      if (pid.carousel.settled()) built.settledEtts.push_back(a.instance);
    }
    GuideTables::Texts& texts = built.etts[pid.instances.front().instance];
    for (const auto& [id, text] : pid.texts) texts.emplace(id, text.text);
    if (texts.empty()) built.etts.erase(pid.instances.front().instance);
  }
  for (auto* list :
       {&built.announcedEits, &built.announcedEtts, &built.settledEits, &built.settledEtts})
    std::sort(list->begin(), list->end());
  guide = std::move(built);
  guideStale = false;
}

bool PsipDecoder::Impl::checkComplete() const {
  const auto received = [](const Carousel& c, size_t pending) {
    return !c.awaited() || (c.repeated() && pending == 0);
  };
  return mgtCrc &&
         std::all_of(
             eits.begin(), eits.end(),
             [&](const auto& e) { return received(e.second.carousel, e.second.pending); }) &&
         std::all_of(etts.begin(), etts.end(),
                     [&](const auto& e) { return received(e.second.carousel, 0); });
}

const char* PsipDecoder::Impl::pushAlert(const Section& section) {
  if (section.lastNumber != 0) return "emergency alert has several sections";
  ByteReader in = section.body();
  if (in.u8() != 0) return "emergency alert of an unknown protocol version";
  EmergencyAlert received;
  received.sequence = section.version;
  received.eventId = in.u16();
  received.originator = characters(in.part(3));
  received.eventCode = characters(in.part(in.u8()));
  received.activationText = textOf(in.part(in.u8()));
  received.timeRemaining = in.u8();
  received.start = in.u32();
  received.duration = in.u16();
  received.priority = in.u16() & 0x0F;
  in.u16();  // details_OOB_source_ID
  const uint16_t major = in.u16() & 0x03FF;
  const uint16_t minor = in.u16() & 0x03FF;
  received.hasDetailsChannel = major != 0 || minor != 0;
  in.u16();  // audio_OOB_source_ID
  received.text = textOf(in.part(in.u16()));
  if (in.passedEnd()) return "emergency alert passes the end";
  if (received.text.empty()) received.text = received.activationText;
  alert = std::move(received);
  return nullptr;
}

PsipDecoder::PsipDecoder() : impl_(std::make_unique<Impl>()) { impl_->wanted.set(kPsipBasePid); }

PsipDecoder::~PsipDecoder() = default;

bool PsipDecoder::wants(uint16_t pid) const { return impl_->wanted[pid]; }

const char* PsipDecoder::push(const Section& section) {
  const uint8_t tableId = section.tableId;
  const bool isBase = section.pid == kPsipBasePid;
  const auto eit = tableId == kEitId ? impl_->eits.find(section.pid) : impl_->eits.end();
  const auto ett = tableId == kEttId ? impl_->etts.find(section.pid) : impl_->etts.end();
  const bool isWanted = isBase ? tableId == kMgtId || tableId == kSttId || tableId == kRrtId ||
                                     tableId == kEmergencyAlertId
                               : eit != impl_->eits.end() || ett != impl_->etts.end();
  if (!isWanted) return nullptr;
  if (section.fault) return section.fault;
  if (!section.current) return nullptr;

  const char* fault = nullptr;
  switch (tableId) {
    case kSttId:
      return impl_->pushStt(section);
    case kRrtId:
      return impl_->pushRrt(section);
    case kEmergencyAlertId:
      return impl_->pushAlert(section);
    case kMgtId:
      fault = impl_->pushMgt(section);
      break;
    case kEitId:
      fault = impl_->pushEit(eit->second, section);
      break;
    default:
      fault = impl_->pushEtt(ett->second, section);
      break;
  }
  impl_->complete = impl_->checkComplete();
  return fault;
}

void PsipDecoder::endPass() {
  const auto end = [this](auto& pids) {
    for (auto& [number, pid] : pids)
      if (pid.carousel.endPass()) impl_->sweep(pid);
  };
  end(impl_->eits);
  end(impl_->etts);
  impl_->complete = impl_->checkComplete();
}

void PsipDecoder::giveUpSilent() {
  for (auto& [number, pid] : impl_->eits) pid.carousel.giveUpSilent();
  for (auto& [number, pid] : impl_->etts) pid.carousel.giveUpSilent();
  impl_->complete = impl_->checkComplete();
}

std::optional<SystemTime> PsipDecoder::takeSystemTime() {
  return std::exchange(impl_->time, std::nullopt);
}

std::optional<EmergencyAlert> PsipDecoder::takeAlert() {
  return std::exchange(impl_->alert, std::nullopt);
}

std::vector<RatingRegionTable> PsipDecoder::takeRatingRegions() {
  return std::exchange(impl_->regions, {});
}

bool PsipDecoder::takeGuideChange() { return std::exchange(impl_->guideChanged, false); }

std::optional<uint8_t> PsipDecoder::gpsUtcOffset() const { return impl_->offset; }

const GuideTables& PsipDecoder::guide() const {
  if (impl_->guideStale) impl_->buildGuide();
  return impl_->guide;
}

bool PsipDecoder::guideComplete() const { return impl_->complete; }

bool PsipDecoder::guideSettled() const {
  const auto settled = [](const auto& pids) {
    return std::all_of(pids.begin(), pids.end(),
                       [](const auto& p) { return p.second.carousel.settled(); });
  };
  return impl_->mgtCrc && settled(impl_->eits) && settled(impl_->etts);
}

}  // namespace atschost
