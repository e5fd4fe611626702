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

namespace atschost {
namespace {

constexpr uint8_t kMgtId = 0xC7;
constexpr uint8_t kEitId = 0xCB;
constexpr uint8_t kEttId = 0xCC;
constexpr uint8_t kSttId = 0xCD;
constexpr uint8_t kEmergencyAlertId = 0xD8;

constexpr uint32_t kGpsEpoch = 315964800;  // 1980-01-06 00:00:00 UTC, Unix seconds

constexpr size_t kNodeSize = 64;  // of a container

constexpr const char* kTooMuch = "guide tables are more than is kept";

size_t size_of(const GuideEvent& event) {
  size_t size = sizeof(event) + event.title.size() + event.rating.size() +
                event.other_ratings.size() + event.genres.size() +
                event.caption_services.size() * sizeof(CaptionService);
  for (const Advisory& advisory : event.advisories)
    size += sizeof(advisory) + 2 * advisory.values.size();
  return size;
}

// Text as it stands in fields of plain characters.
std::string characters(ByteReader field) {
  return {reinterpret_cast<const char*>(field.data()), field.left()};
}

std::string text_of(ByteReader field, size_t max_bytes = AIEC_DESCRIPTION_SIZE) {
  return read_text(field.data(), field.left(), max_bytes);
}

// How the tables of one kind come round on one PID.
class Carousel {
 public:
  void restart() { *this = {}; }

  // Told of each section, which `key` tells from the others of the PID. Returns whether the PID has
  // just come to be settled.
  bool note(uint32_t key, bool is_new) {
    if (is_new || !mark_) {
      mark_ = key;
      rounds_ = 0;
    }
    if (is_new) return false;
    repeated_ = true;
    const bool was_settled = settled_;
    if (key == mark_ && ++rounds_ >= 2) settled_ = true;
    return settled_ && !was_settled;
  }

  // A pass through the stream ends. Returns whether the PID has just come to be settled.
  bool end_pass() {
    if (++passes_ < 2) return false;
    awaited_ = false;
    return !std::exchange(settled_, true);
  }
  // Nothing is waited for where nothing came.
  void give_up_silent() { awaited_ = awaited_ && mark_; }

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

size_t size_of(const EitTable::Pending& pending) {
  size_t size = kNodeSize;
  for (const auto& [number, section] : pending.sections)
    size += kNodeSize + size_of(section.events);
  return size;
}
size_t size_of(const EitTable& table) {
  return sizeof(table) + kNodeSize + 4 * table.crcs.size() + size_of(table.events) +
         (table.pending ? size_of(*table.pending) : 0);
}
size_t size_of(const EttText& text) { return size_of_text(text.text); }

size_t size_of(const EitPid& pid) {
  size_t size = 0;
  for (const auto& [key, table] : pid.tables) size += size_of(table);
  return size;
}
size_t size_of(const EttPid& pid) {
  size_t size = 0;
  for (const auto& [id, text] : pid.texts) size += size_of(text);
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

// The header that all tables share.
struct Header {
  uint16_t extension;
  uint8_t version;
  uint8_t number;
  uint8_t last;
  uint32_t crc;
};

}  // namespace

size_t size_of(const GuideTables::Eit& events) {
  size_t size = kNodeSize;
  for (const GuideEvent& event : events) size += size_of(event);
  return size;
}

size_t size_of_text(const std::string& text) { return sizeof(EttText) + kNodeSize + text.size(); }

uint32_t SystemTime::unix_seconds() const { return gps_seconds - gps_utc_offset + kGpsEpoch; }

bool GuideEvent::operator==(const GuideEvent& other) const {
  return event_id == other.event_id && start == other.start && duration == other.duration &&
         title == other.title && rating == other.rating && other_ratings == other.other_ratings &&
         advisories == other.advisories && genres == other.genres && captions == other.captions &&
         caption_services == other.caption_services;
}

struct PsipDecoder::Impl {
  const char* push_mgt(const Header& header, ByteReader in);
  const char* push_stt(ByteReader in);
  const char* push_rrt(const uint8_t* section, size_t size);
  const char* push_eit(EitPid& pid, const Header& header, ByteReader in);
  const char* push_ett(EttPid& pid, const Header& header, ByteReader in);
  const char* push_alert(const Header& header, ByteReader in);

  const char* take_events(EitPid& pid, EitTable& table, const Header& header,
                          GuideTables::Eit events);
  void commit(EitPid& pid, EitTable& table);
  void sweep(EitPid& pid);
  void sweep(EttPid& pid);
  void build_guide();
  bool check_complete() const;

  std::bitset<0x2000> wanted;
  std::optional<uint32_t> mgt_crc;
  std::map<uint16_t, EitPid> eits;
  std::map<uint16_t, EttPid> etts;
  size_t kept = 0;

  bool complete = false;
  bool guide_changed = false;  // since it was last taken
  bool guide_stale = false;    // `guide` is no longer what was received
  GuideTables guide;

  std::optional<SystemTime> time;
  std::optional<uint8_t> offset;
  std::optional<EmergencyAlert> alert;
  std::vector<RatingRegionTable> regions;
  std::map<uint8_t, std::vector<uint8_t>> known_regions;
};

const char* PsipDecoder::Impl::push_mgt(const Header& header, ByteReader in) {
  if (mgt_crc == header.crc) return nullptr;
  if (header.last != 0) return "MGT has several sections";
  if (in.u8() != 0) return "MGT of an unknown protocol version";
  PidPlan eit_plan, ett_plan;
  std::bitset<128> known_eits, known_etts;
  for (unsigned tables = in.u16(); tables > 0 && !in.passed_end(); --tables) {
    const uint16_t type = in.u16();
    const uint16_t pid = in.u16() & 0x1FFF;
    const auto version = static_cast<uint8_t>(in.u8() & 0x1F);
    in.u32();  // number_bytes
    in.part(in.u16() & 0x0FFF);
    const bool is_eit = (type & 0xFF80) == 0x0100;
    const bool is_ett = (type & 0xFF80) == 0x0200;
    if (in.passed_end() || !(is_eit || is_ett)) continue;
    if (pid < 0x0010 || pid >= kPsipBasePid) continue;
    const auto instance = static_cast<uint8_t>(type & 0x7F);
    auto& known = is_eit ? known_eits : known_etts;
    if (!known[instance]) (is_eit ? eit_plan : ett_plan)[pid].push_back({instance, version});
    known.set(instance);
  }
  in.part(in.u16() & 0x0FFF);
  if (in.passed_end()) return "MGT passes the end";

  for (PidPlan* plan : {&eit_plan, &ett_plan})
    for (auto& [pid, instances] : *plan)
      std::sort(instances.begin(), instances.end(),
                [](const Announced& a, const Announced& b) { return a.instance < b.instance; });
  bool changed = !mgt_crc;
  mgt_crc = header.crc;
  changed = follow(eit_plan, eits, kept) || changed;
  changed = follow(ett_plan, etts, kept) || changed;
  for (auto& [number, pid] : eits) {
    // Tables of instances that the PID no longer carries.
    const auto count = static_cast<uint8_t>(pid.instances.size());
    for (auto it = pid.tables.lower_bound({count, 0}); it != pid.tables.end();) {
      kept -= size_of(it->second);
      if (it->second.pending) --pid.pending;
      it = pid.tables.erase(it);
    }
  }
  wanted.reset();
  wanted.set(kPsipBasePid);
  for (const auto& [pid, tables] : eits) wanted.set(pid);
  for (const auto& [pid, texts] : etts) wanted.set(pid);
  guide_changed = guide_changed || changed;
  guide_stale = guide_stale || changed;
  return nullptr;
}

const char* PsipDecoder::Impl::push_stt(ByteReader in) {
  const uint8_t protocol = in.u8();
  SystemTime received;
  received.gps_seconds = in.u32();
  received.gps_utc_offset = in.u8();
  const uint8_t daylight = in.u8();
  received.daylight_status = daylight & 0x80;
  received.daylight_day_of_month = daylight & 0x1F;
  received.daylight_hour = in.u8();
  if (in.passed_end()) return "STT is too short";
  if (protocol != 0) return "STT of an unknown protocol version";
  time = received;
  offset = received.gps_utc_offset;
  return nullptr;
}

const char* PsipDecoder::Impl::push_rrt(const uint8_t* section, size_t size) {
  const uint8_t number = section[4];
  std::vector<uint8_t>& known = known_regions[number];
  if (std::equal(known.begin(), known.end(), section, section + size)) return nullptr;
  RatingRegionTable table;
  if (const char* fault = read_rating_region(section, size, table.region)) return fault;
  known.assign(section, section + size);
  table.section = known;
  regions.erase(
      std::remove_if(regions.begin(), regions.end(),
                     [&](const RatingRegionTable& r) { return r.region.number == number; }),
      regions.end());
  regions.push_back(std::move(table));
  return nullptr;
}

const char* PsipDecoder::Impl::push_eit(EitPid& pid, const Header& header, ByteReader in) {
  const uint16_t source = header.extension;
  // Which of the instances of the PID it may be: those of its version, else any.
  const size_t instances = pid.instances.size();
  const bool versions_tell =
      std::any_of(pid.instances.begin(), pid.instances.end(),
                  [&](const Announced& a) { return a.version == header.version; });
  std::optional<uint8_t> free;
  for (uint8_t n = 0; n < instances; ++n) {
    if (versions_tell && pid.instances[n].version != header.version) continue;
    const auto found = pid.tables.find({n, source});
    if (found == pid.tables.end()) {
      if (!free) free = n;
      continue;
    }
    const EitTable& table = found->second;
    const bool is_current = table.round == pid.round && table.version == header.version &&
                            table.crcs.size() == header.last + 1u;
    std::optional<uint32_t> pending_crc;
    if (const auto& next = table.pending;
        next && next->version == header.version && next->last == header.last) {
      const auto section = next->sections.find(header.number);
      if (section != next->sections.end()) pending_crc = section->second.crc;
    }
    if ((is_current && table.crcs[header.number] == header.crc) || pending_crc == header.crc) {
      if (pid.carousel.note(uint32_t{n} << 24 | uint32_t{source} << 8 | header.number, false))
        sweep(pid);
      return nullptr;
    }
    if (!free && !is_current && !pending_crc) free = n;
  }
  if (!free) return "EIT differs from another of its version";

  if (in.u8() != 0) return "EIT of an unknown protocol version";
  GuideTables::Eit events;
  bool sound = true;
  for (unsigned count = in.u8(); count > 0; --count) {
    GuideEvent event;
    event.event_id = in.u16() & 0x3FFF;
    event.start = in.u32();
    event.duration = in.u24() & 0x0FFFFF;  // after ETM_location: texts are found by their id
    event.title = text_of(in.part(in.u8()));
    const ByteReader descriptors = in.part(in.u16() & 0x0FFF);
    if (in.passed_end()) return "EIT event passes the end";
    sound = read_event_descriptors(descriptors, event) && sound;
    events.push_back(std::move(event));
  }

  auto found = pid.tables.find({*free, source});
  if (found == pid.tables.end()) {
    if (pid.tables.size() >= kMaxGuideSources * instances) return "EIT has too many sources";
    if (kept >= kMaxGuideSize) return kTooMuch;
    found = pid.tables.emplace(std::pair{*free, source}, EitTable{}).first;
    kept += size_of(found->second);
  }
  if (const char* fault = take_events(pid, found->second, header, std::move(events))) return fault;
  pid.carousel.note(uint32_t{*free} << 24 | uint32_t{source} << 8 | header.number, true);
  return sound ? nullptr : "EIT descriptor passes its end";
}

const char* PsipDecoder::Impl::take_events(EitPid& pid, EitTable& table, const Header& header,
                                           GuideTables::Eit events) {
  if (table.pending &&
      (table.pending->version != header.version || table.pending->last != header.last)) {
    kept -= size_of(*table.pending);
    table.pending.reset();
    --pid.pending;
  }
  const size_t size = kNodeSize + size_of(events);
  if (kept + size > kMaxGuideSize) return kTooMuch;
  if (!table.pending) {
    table.pending = EitTable::Pending{header.version, header.last, {}};
    kept += size_of(*table.pending);
    ++pid.pending;
  }
  table.pending->sections.emplace(header.number, EitTable::Section{header.crc, std::move(events)});
  kept += size;
  if (table.pending->sections.size() == header.last + 1u) commit(pid, table);
  return nullptr;
}

// The pending version is whole.
void PsipDecoder::Impl::commit(EitPid& pid, EitTable& table) {
  kept -= size_of(table);
  EitTable whole;
  whole.round = pid.round;
  whole.version = table.pending->version;
  for (auto& [number, section] : table.pending->sections) {
    whole.crcs.push_back(section.crc);
    std::move(section.events.begin(), section.events.end(), std::back_inserter(whole.events));
  }
  const bool changed = table.round == 0 || !(table.events == whole.events);
  table = std::move(whole);
  kept += size_of(table);
  --pid.pending;
  guide_changed = guide_changed || changed;
  guide_stale = guide_stale || changed;
}

const char* PsipDecoder::Impl::push_ett(EttPid& pid, const Header& header, ByteReader in) {
  const uint8_t protocol = in.u8();
  const uint32_t id = in.u32();
  if (in.passed_end()) return "ETT is too short";
  if (protocol != 0) return "ETT of an unknown protocol version";
  if ((id & 3) != 2) return nullptr;  // the text of a channel

  // Stations do send texts of their own under one table_id_extension: only the id tells.
  const auto found = pid.texts.find(id);
  if (found != pid.texts.end() && found->second.round == pid.round &&
      found->second.version == header.version) {
    if (found->second.crc != header.crc) return "ETT differs from another of its version";
    if (pid.carousel.note(id, false)) sweep(pid);
    return nullptr;
  }
  EttText text{pid.round, header.version, header.crc, text_of(in)};
  const size_t size = size_of(text);
  const size_t old_size = found == pid.texts.end() ? 0 : size_of(found->second);
  if (kept - old_size + size > kMaxGuideSize) return kTooMuch;
  kept = kept - old_size + size;
  const bool changed = found == pid.texts.end() || found->second.text != text.text;
  pid.texts.insert_or_assign(id, std::move(text));
  pid.carousel.note(id, true);
  guide_changed = guide_changed || changed;
  guide_stale = guide_stale || changed;
  return nullptr;
}

// What was not received again since the MGT announced a change is no longer on the air.
void PsipDecoder::Impl::sweep(EitPid& pid) {
  for (auto it = pid.tables.begin(); it != pid.tables.end();) {
    if (it->second.round == pid.round || it->second.pending) {
      ++it;
      continue;
    }
    kept -= size_of(it->second);
    it = pid.tables.erase(it);
  }
  guide_changed = guide_stale = true;
}

void PsipDecoder::Impl::sweep(EttPid& pid) {
  for (auto it = pid.texts.begin(); it != pid.texts.end();) {
    if (it->second.round == pid.round) {
      ++it;
      continue;
    }
    kept -= size_of(it->second);
    it = pid.texts.erase(it);
  }
  guide_changed = guide_stale = true;
}

void PsipDecoder::Impl::build_guide() {
  GuideTables built;
  built.mgt_seen = mgt_crc.has_value();
  for (const auto& [number, pid] : eits) {
    for (const Announced& a : pid.instances) {
      built.announced_eits.push_back(a.instance);
      if (pid.carousel.settled()) built.settled_eits.push_back(a.instance);
    }
    for (const auto& [key, table] : pid.tables)
      if (table.round != 0)
        built.eits.emplace(std::pair{pid.instances[key.first].instance, key.second}, table.events);
  }
  for (const auto& [number, pid] : etts) {
    for (const Announced& a : pid.instances) {
      built.announced_etts.push_back(a.instance);
      if (pid.carousel.settled()) built.settled_etts.push_back(a.instance);
    }
    GuideTables::Texts& texts = built.etts[pid.instances.front().instance];
    for (const auto& [id, text] : pid.texts) texts.emplace(id, text.text);
    if (texts.empty()) built.etts.erase(pid.instances.front().instance);
  }
  for (auto* list :
       {&built.announced_eits, &built.announced_etts, &built.settled_eits, &built.settled_etts})
    std::sort(list->begin(), list->end());
  guide = std::move(built);
  guide_stale = false;
}

bool PsipDecoder::Impl::check_complete() const {
  const auto received = [](const Carousel& c, size_t pending) {
    return !c.awaited() || (c.repeated() && pending == 0);
  };
  return mgt_crc &&
         std::all_of(
             eits.begin(), eits.end(),
             [&](const auto& e) { return received(e.second.carousel, e.second.pending); }) &&
         std::all_of(etts.begin(), etts.end(),
                     [&](const auto& e) { return received(e.second.carousel, 0); });
}

const char* PsipDecoder::Impl::push_alert(const Header& header, ByteReader in) {
  if (header.last != 0) return "emergency alert has several sections";
  if (in.u8() != 0) return "emergency alert of an unknown protocol version";
  EmergencyAlert received;
  received.sequence = header.version;
  received.event_id = in.u16();
  received.originator = characters(in.part(3));
  received.event_code = characters(in.part(in.u8()));
  received.activation_text = text_of(in.part(in.u8()));
  received.time_remaining = in.u8();
  received.start = in.u32();
  received.duration = in.u16();
  received.priority = in.u16() & 0x0F;
  in.u16();  // details_OOB_source_ID
  const uint16_t major = in.u16() & 0x03FF;
  const uint16_t minor = in.u16() & 0x03FF;
  received.has_details_channel = major != 0 || minor != 0;
  in.u16();  // audio_OOB_source_ID
  received.text = text_of(in.part(in.u16()));
  if (in.passed_end()) return "emergency alert passes the end";
  if (received.text.empty()) received.text = received.activation_text;
  alert = std::move(received);
  return nullptr;
}

PsipDecoder::PsipDecoder() : impl_(std::make_unique<Impl>()) { impl_->wanted.set(kPsipBasePid); }

PsipDecoder::~PsipDecoder() = default;

bool PsipDecoder::wants(uint16_t pid) const { return impl_->wanted[pid]; }

const char* PsipDecoder::push(uint16_t pid, const uint8_t* section, size_t size) {
  const uint8_t table_id = section[0];
  const bool is_base = pid == kPsipBasePid;
  const auto eit = table_id == kEitId ? impl_->eits.find(pid) : impl_->eits.end();
  const auto ett = table_id == kEttId ? impl_->etts.find(pid) : impl_->etts.end();
  const bool is_wanted = is_base ? table_id == kMgtId || table_id == kSttId || table_id == kRrtId ||
                                       table_id == kEmergencyAlertId
                                 : eit != impl_->eits.end() || ett != impl_->etts.end();
  if (!is_wanted) return nullptr;
  if (const char* fault = section_header_fault(section, size)) return fault;
  if (!(section[5] & 1)) return nullptr;  // current_next_indicator: not valid yet

  const uint8_t* crc = section + size - kSectionCrcSize;
  const Header header{read16(section + 3), static_cast<uint8_t>(section[5] >> 1 & 0x1F), section[6],
                      section[7], ByteReader(crc, kSectionCrcSize).u32()};
  const ByteReader body(section + kSectionHeaderSize, size - kSectionHeaderSize - kSectionCrcSize);
  const char* fault = nullptr;
  switch (table_id) {
    case kSttId:
      return impl_->push_stt(body);
    case kRrtId:
      return impl_->push_rrt(section, size);
    case kEmergencyAlertId:
      return impl_->push_alert(header, body);
    case kMgtId:
      fault = impl_->push_mgt(header, body);
      break;
    case kEitId:
      fault = impl_->push_eit(eit->second, header, body);
      break;
    default:
      fault = impl_->push_ett(ett->second, header, body);
      break;
  }
  impl_->complete = impl_->check_complete();
  return fault;
}

void PsipDecoder::end_pass() {
  const auto end = [this](auto& pids) {
    for (auto& [number, pid] : pids)
      if (pid.carousel.end_pass()) impl_->sweep(pid);
  };
  end(impl_->eits);
  end(impl_->etts);
  impl_->complete = impl_->check_complete();
}

void PsipDecoder::give_up_silent() {
  for (auto& [number, pid] : impl_->eits) pid.carousel.give_up_silent();
  for (auto& [number, pid] : impl_->etts) pid.carousel.give_up_silent();
  impl_->complete = impl_->check_complete();
}

std::optional<SystemTime> PsipDecoder::take_system_time() {
  return std::exchange(impl_->time, std::nullopt);
}

std::optional<EmergencyAlert> PsipDecoder::take_alert() {
  return std::exchange(impl_->alert, std::nullopt);
}

std::vector<RatingRegionTable> PsipDecoder::take_rating_regions() {
  return std::exchange(impl_->regions, {});
}

bool PsipDecoder::take_guide_change() { return std::exchange(impl_->guide_changed, false); }

std::optional<uint8_t> PsipDecoder::gps_utc_offset() const { return impl_->offset; }

const GuideTables& PsipDecoder::guide() const {
  if (impl_->guide_stale) impl_->build_guide();
  return impl_->guide;
}

bool PsipDecoder::guide_complete() const { return impl_->complete; }

bool PsipDecoder::guide_settled() const {
  const auto settled = [](const auto& pids) {
    return std::all_of(pids.begin(), pids.end(),
                       [](const auto& p) { return p.second.carousel.settled(); });
  };
  return impl_->mgt_crc && settled(impl_->eits) && settled(impl_->etts);
}

}  // namespace atschost
