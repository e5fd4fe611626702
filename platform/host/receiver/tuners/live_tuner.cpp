#include "receiver/tuners/live_tuner.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "middleware_types.h"
#include "receiver/events/alerts.h"
#include "receiver/log.h"
#include "receiver/station/clock.h"
#include "receiver/stream/air.h"
#include "receiver/stream/demux.h"
#include "receiver/stream/frequency_plan.h"
#include "receiver/stream/pace.h"
#include "receiver/stream/transport.h"
#include "receiver/tables/psi_decoder.h"
#include "receiver/tables/psip_decoder.h"
#include "receiver/thread.h"
#include "receiver/tuners/carrier.h"

namespace atschost {
namespace {

using Instant = std::chrono::steady_clock::time_point;
using std::chrono::milliseconds;

Instant now() { return std::chrono::steady_clock::now(); }

constexpr milliseconds kTick(250);             // how often files and clocks are looked at
constexpr milliseconds kUpdateInterval(1000);  // of time, guide and service list, at most
constexpr milliseconds kBurst(50);             // packets are read in bursts of that length
constexpr milliseconds kShortestPass(250);     // a short file is not read more often
constexpr milliseconds kLongestLag(1000);      // what is not made up for, as after suspension
constexpr size_t kMaxBurst = 512;              // packets
constexpr size_t kMaxSections = 4096;          // remembered
constexpr uint32_t kLongestStep = 60;          // of the clock between two looks at it, seconds

constexpr uint8_t kPatId = 0x00;
constexpr uint8_t kPmtId = 0x02;
constexpr uint8_t kMgtId = 0xC7;
constexpr uint8_t kSystemTimeId = 0xCD;
constexpr uint8_t kCableAlertId = 0xD8;

}  // namespace

// One tuning, from play() until the carrier is left.
class LiveTuner::Session {
 public:
  Session(LiveTuner& tuner, const ServiceKey& service, uint64_t tuning)
      : tuner_(tuner),
        source_(service.source),
        frequency_(service.frequency),
        tuning_(tuning),
        alerts_(tuner.events_, tuner.alert_settings_, service.source) {}

  void run();

 private:
  friend class LiveTuner::Stream;

  // Does something unless the carrier has been left meanwhile.
  template <typename Action>
  bool while_tuned(Action action) {
    std::lock_guard<std::mutex> lock(tuner_.mutex_);
    if (tuner_.tuning_ != tuning_) return false;
    action();
    return true;
  }
  bool is_tuned() {
    return while_tuned([] {});
  }
  void pause_until(Instant instant) {
    std::unique_lock<std::mutex> lock(tuner_.mutex_);
    tuner_.changed_.wait_until(lock, instant, [this] { return tuner_.tuning_ != tuning_; });
  }

  void raise(AFW_event_t event) {
    while_tuned([&] { tuner_.events_.raise(event); });
  }
  void set_locked(bool locked);
  void check_transition();

  LiveTuner& tuner_;
  const uint32_t source_;
  const uint32_t frequency_;
  const uint64_t tuning_;
  Alerts alerts_;
  // The clock when the present programme was looked for last, and of which service.
  uint32_t looked_at_ = 0;
  std::optional<ServiceKey> looked_for_;
};

// One content of the carrier's file.
class LiveTuner::Stream {
 public:
  Stream(Session& session, const File& file, StreamId id)
      : session_(session),
        file_(file),
        id_(std::move(id)),
        psi_(std::make_unique<PsiDecoder>(session.source_)),
        demux_([this](uint16_t pid) { return psi_->wants(pid) || psip_.wants(pid); },
               [this](uint16_t pid, const uint8_t* section, size_t size) {
                 const char* fault = push_psip(pid, section, size);
                 const char* other = push_psi(pid, section, size);
                 return fault ? fault : other;
               },
               [this](const uint8_t* packet) { on_packet(packet); }) {}

  // Until the carrier is left or the file is another one.
  void run();

 private:
  void on_packet(const uint8_t* packet);
  const char* push_psip(uint16_t pid, const uint8_t* section, size_t size);
  const char* push_psi(uint16_t pid, const uint8_t* section, size_t size);
  void take_time();
  void follow_time();
  bool read_burst(size_t packets, size_t& got);
  bool has_changed();
  bool has_tables() const {
    return psi_->complete() && psip_.guide_complete() && psip_.gps_utc_offset();
  }
  void end_head();
  void update();
  enum Level { kNothing, kSettled, kComplete };  // of what is known of the services
  Level level() const;
  void update_advisories();
  void update_services();
  bool may_replace_services(const std::vector<Service>& found) const;
  void update_guide();
  std::optional<uint32_t> station_time() const {
    return Clock::instance().station_time(id_, now());
  }

  // Identity of a section: PID, table_id, table_id_extension, section_number.
  using SectionKey = std::tuple<uint16_t, uint8_t, uint16_t, uint8_t>;

  Session& session_;
  const File& file_;
  const StreamId id_;
  StreamId changing_;  // what the file was seen to become
  std::vector<uint8_t> chunk_ = std::vector<uint8_t>(kMaxBurst * kPacketSize);
  bool read_failed_ = false;
  bool locked_ = false;
  bool in_head_ = true;  // what is read first, and fast
  unsigned passes_ = 0;  // read to the end
  size_t total_ = 0;     // bytes read
  Pace pace_;

  std::unique_ptr<PsiDecoder> psi_;
  std::map<SectionKey, uint32_t> sections_;  // CRC_32 of those of which services are made
  unsigned psi_first_pass_ = 0;              // passes_ and total_ when the decoder was made
  size_t psi_first_byte_ = 0;
  bool had_pat_ = false;
  Level services_taken_ = kNothing;                // of this decoder
  std::pair<size_t, bool> advisories_taken_ = {};  // number of PMTs, and whether these are all
  unsigned service_round_ = 0;                     // of the tuner's, taken last

  PsipDecoder psip_;
  std::optional<SystemTime> time_;  // received and not followed yet
  Instant next_time_;               // not followed again before
  bool time_told_ = false;
  int mgt_version_ = -1;
  size_t mgt_byte_ = 0;  // total_ when that version came
  bool guide_complete_told_ = false;
  std::optional<uint8_t> guide_offset_;

  Demux demux_;  // last: it hands sections to what is above
};

void LiveTuner::Session::run() {
  int told = 0;
  while (is_tuned()) {
    const std::string path = carrier_path(source_, frequency_);
    errno = ENOENT;
    const File file = path.empty() ? File() : open_regular(path);
    const auto id = file ? stream_id(path, file) : std::nullopt;
    if (id) {
      Stream(*this, file, *id).run();
      continue;
    }
    if (const int error = errno; error != ENOENT && error != ENOTDIR && error != told) {
      log().Warn("%s: no lock: %s", path.c_str(), std::strerror(error));
      told = error;
    }
    alerts_.stop();
    set_locked(false);
    tuner_.looked_();
    pause_until(now() + kTick);
  }
  alerts_.stop();
}

void LiveTuner::Session::set_locked(bool locked) {
  while_tuned([&] {
    if (tuner_.locked_ == locked) return;
    tuner_.locked_ = locked;
    if (!locked) {
      tuner_.advisories_.clear();
      tuner_.head_read_ = false;
    }
    log().Info("%s %u Hz: %s", modulation_name(source_), frequency_,
               locked ? "locked" : "no signal");
    tuner_.events_.raise(locked ? AFW_TUNER_LOCKED : AFW_TUNER_UNLOCKED);
    tuner_.events_.raise(locked ? AFW_CHANNEL_PLAY_SUCCESS : AFW_CHANNEL_PLAY_FAILURE);
  });
}

// A programme of the current service that began between the last look and this one.
void LiveTuner::Session::check_transition() {
  const uint32_t time = Clock::instance().now();
  const uint32_t before = std::exchange(looked_at_, time);
  std::optional<ServiceKey> key;
  while_tuned([&] { key = tuner_.service_; });
  if (!key) return;
  const bool same = looked_for_ == key;
  looked_for_ = key;
  if (!same || time <= before || time - before > kLongestStep) return;
  uint16_t source_id = 0;
  tuner_.services_.visit(key->source, [&](const Service& service) {
    if (!(service.key == *key)) return true;
    source_id = service.source_id;
    return false;
  });
  if (source_id == 0) return;
  const auto events = tuner_.guide_.events(key->source, key->frequency, source_id);
  const auto next =
      std::upper_bound(events->begin(), events->end(), before,
                       [](uint32_t t, const ShownEvent& event) { return t < event.start; });
  if (next != events->end() && next->start <= time) raise(AFW_EVENT_TRANSITION);
}

void LiveTuner::Stream::run() {
  Instant next_tick = now() + kTick;
  Instant next_update = now() + kUpdateInterval;
  Instant pass_begin = now();
  Instant due = now();  // of the next burst
  bool was_fast = true;
  while (session_.is_tuned()) {
    if (now() >= next_tick) {
      next_tick = now() + kTick;
      if (has_changed()) return;
      follow_time();
      session_.alerts_.check(now(), station_time());
      session_.check_transition();
      update_advisories();
      session_.tuner_.looked_();
    }
    if (!in_head_ && now() >= next_update) {
      next_update = now() + kUpdateInterval;
      update();
    }

    const bool fast = in_head_ || atschost::fast();
    const double rate = pace_.packets_per_second();
    const auto burst = static_cast<size_t>(rate * kBurst.count() / 1000);
    size_t got = 0;
    const bool more = read_burst(fast ? kMaxBurst : std::clamp<size_t>(burst, 1, kMaxBurst), got);
    if (in_head_ && more && (total_ >= kReadLimit || has_tables())) end_head();
    if (!more) {
      demux_.finish();
      psip_.end_pass();
      pace_.seam();
      ++passes_;
      if (!locked_) session_.set_locked(false);  // there is not a single packet
      // The second time shows what came before the tables that tell of it.
      if (in_head_ && (passes_ == 2 || !locked_ || read_failed_)) end_head();
      if (!in_head_) session_.pause_until(std::max<Instant>(pass_begin + kShortestPass, due));
      pass_begin = due = now();
    } else if (!fast) {
      if (was_fast || due + kLongestLag < now()) due = now();
      due += std::chrono::duration_cast<std::chrono::steady_clock::duration>(
          std::chrono::duration<double>(static_cast<double>(got) / kPacketSize / rate));
      session_.pause_until(due);
    }
    was_fast = fast;
  }
}

// Returns false at the end of the file, which begins anew.
bool LiveTuner::Stream::read_burst(size_t packets, size_t& got) {
  ssize_t result;
  do {
    result = ::read(file_.fd(), chunk_.data(), packets * kPacketSize);
  } while (result < 0 && errno == EINTR);
  if (result > 0) {
    got = static_cast<size_t>(result);
    total_ += got;
    demux_.push(chunk_.data(), got);
    return true;
  }
  if (result < 0 && !std::exchange(read_failed_, true))
    log().Warn("%s: reading: %m", id_.path.c_str());
  if (lseek(file_.fd(), 0, SEEK_SET) != 0) read_failed_ = true;
  return false;
}

// Whether another content has taken the file's place. A file that is being written counts once it
// stays as it is.
bool LiveTuner::Stream::has_changed() {
  const auto present = stream_id(id_.path);
  if (!present) return true;
  if (*present == id_) return false;
  const bool settled = *present == changing_;
  changing_ = *present;
  return settled || !present->same_file(id_);
}

void LiveTuner::Stream::on_packet(const uint8_t* packet) {
  if (!locked_) {
    locked_ = true;
    session_.set_locked(true);
  }
  pace_.packet(packet);
}

const char* LiveTuner::Stream::push_psip(uint16_t pid, const uint8_t* section, size_t size) {
  if (!psip_.wants(pid)) return nullptr;
  if (const char* fault = psip_.push(pid, section, size)) return fault;
  switch (section[0]) {
    case kSystemTimeId:
      take_time();
      break;
    case kMgtId:
      if (size > 5 && section[5] & 1 && mgt_version_ != (section[5] >> 1 & 0x1F)) {
        mgt_version_ = section[5] >> 1 & 0x1F;
        mgt_byte_ = total_;
        guide_complete_told_ = false;
      }
      break;
    case kCableAlertId:
      if (const auto alert = psip_.take_alert(); alert && session_.is_tuned())
        session_.alerts_.receive(*alert, now(), station_time());
      break;
    default:
      break;
  }
  return nullptr;
}

void LiveTuner::Stream::take_time() {
  const auto time = psip_.take_system_time();
  if (!time) return;
  pace_.system_time(time->gps_seconds);
  time_ = time;
  follow_time();
}

void LiveTuner::Stream::follow_time() {
  const Instant present = now();
  if (!time_ || present < next_time_) return;
  next_time_ = present + kUpdateInterval;
  const SystemTime time = *std::exchange(time_, std::nullopt);
  session_.while_tuned([&] {
    const Clock::Effect effect = Clock::instance().follow(id_, time, present);
    EventQueue& events = session_.tuner_.events_;
    if (!time_told_ || effect.details_changed) events.raise_time(AFW_STT_UPDATE, time);
    if (effect.time_changed) events.raise_time(AFW_TIME_CHANGE, time);
    time_told_ = true;
  });
}

// Another version of a table of which services are made calls for a new decoder, which takes the
// first version that it sees.
const char* LiveTuner::Stream::push_psi(uint16_t pid, const uint8_t* section, size_t size) {
  if (!psi_->wants(pid)) return nullptr;
  const uint8_t id = section[0];
  const uint8_t vct_id = session_.source_ == AI_INPUT_CABLE ? 0xC9 : 0xC8;
  const bool is_ours = pid == kPatPid        ? id == kPatId
                       : pid == kPsipBasePid ? id == vct_id
                                             : id == kPmtId;
  if (!is_ours) return nullptr;
  if (size < 12 || !(section[5] & 1)) return psi_->push(pid, section, size);
  const SectionKey key(pid, id, read16(section + 3), section[6]);
  const uint8_t* end = section + size;
  const uint32_t crc = uint32_t{read16(end - 4)} << 16 | read16(end - 2);
  const auto known = sections_.find(key);
  if (known == sections_.end() || known->second != crc) {
    if (const char* fault = section_fault(section, size)) return fault;
    const bool is_change = known != sections_.end() || services_taken_ != kNothing;
    if (sections_.size() >= kMaxSections) sections_.clear();
    sections_[key] = crc;
    if (is_change) {
      psi_ = std::make_unique<PsiDecoder>(session_.source_);
      advisories_taken_ = {};
      psi_first_pass_ = passes_;
      psi_first_byte_ = total_;
      services_taken_ = kNothing;
    }
  }
  const char* fault = psi_->push(pid, section, size);
  had_pat_ |= psi_->tables().pat.has_value();
  return fault;
}

void LiveTuner::Stream::end_head() {
  in_head_ = false;
  update();
  update_advisories();
  session_.while_tuned([&] { session_.tuner_.head_read_ = true; });
  session_.tuner_.looked_();
  const CarrierTables& tables = psi_->tables();
  log().Info("%s: VCT %s, PAT %s, %zu EITs; %.0f packets a second", id_.path.c_str(),
             tables.vct ? "found" : "none", tables.pat ? "found" : "none",
             psip_.guide().eits.size(), pace_.packets_per_second());
}

void LiveTuner::Stream::update() {
  update_services();
  update_guide();
  session_.tuner_.regions_.receive(psip_.take_rating_regions());
  if (const std::string faults = demux_.take_faults(); !faults.empty())
    log().Warn("%s: %s", id_.path.c_str(), faults.c_str());
}

LiveTuner::Stream::Level LiveTuner::Stream::level() const {
  const bool seen_whole = passes_ - psi_first_pass_ >= 2 || total_ - psi_first_byte_ >= kReadLimit;
  return psi_->complete() ? kComplete : seen_whole ? kSettled : kNothing;
}

// What the PMTs say of the programmes that are on. Services whose PMT has not come again yet are
// rated as they were.
void LiveTuner::Stream::update_advisories() {
  const CarrierTables& tables = psi_->tables();
  const std::pair<size_t, bool> state(tables.pmts.size(), level() != kNothing);
  if (std::exchange(advisories_taken_, state) == state) return;
  session_.while_tuned([&] {
    auto& known = session_.tuner_.advisories_;
    if (state.second) known.clear();
    for (auto it = known.begin(); it != known.end();)
      it = tables.pat && !tables.pat->pmt_pids.count(it->first) ? known.erase(it) : std::next(it);
    for (const auto& [program, streams] : tables.pmts) known.erase(program);
    for (const auto& [program, advisories] : tables.advisories) known[program] = advisories;
  });
}

void LiveTuner::Stream::update_services() {
  const Level level = this->level();
  const unsigned round = session_.tuner_.service_rounds_;
  if (std::exchange(service_round_, round) != round) services_taken_ = kNothing;
  if (level <= services_taken_) return;
  services_taken_ = level;
  auto found = build_services(psi_->tables(), session_.source_, session_.frequency_);
  if (level == kSettled && !may_replace_services(found)) return;
  LiveTuner& tuner = session_.tuner_;
  ServiceList::Change change;
  session_.while_tuned([&] {
    change = tuner.services_.replace(session_.source_, session_.frequency_, std::move(found));
  });
  if (!change.any()) return;
  log().Info("%s: services: %zu deleted, %zu added, %zu changed", id_.path.c_str(), change.deleted,
             change.added, change.updated);
  tuner.services_changed_();
  for (size_t i = 0; i < change.deleted; ++i) tuner.events_.raise(AFW_SERVICE_DELETED);
  for (size_t i = 0; i < change.added; ++i) tuner.events_.raise(AFW_SERVICE_ADDED);
  for (size_t i = 0; i < change.updated; ++i) tuner.events_.raise(AFW_SERVICE_UPDATE);
  tuner.events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  // Events of a service that is listed anew may be known already.
  std::vector<uint16_t> known;
  for (const uint16_t id : change.source_ids)
    if (!tuner.guide_.events(session_.source_, session_.frequency_, id)->empty())
      known.push_back(id);
  tuner.events_.raise_guide_update(known);
}

// Whether tables that never became complete are all that the carrier has, rather than what is left
// of them.
bool LiveTuner::Stream::may_replace_services(const std::vector<Service>& found) const {
  const CarrierTables& tables = psi_->tables();
  if (tables.pat ? psi_->awaits_pmts() : had_pat_) {
    // Nothing is known to be gone; yet the VCT tells what the services are now. Those that were
    // added by hand stay anyway.
    std::set<ServiceKey> listed, received;
    for (const Service& service : found) received.insert(service.key);
    session_.tuner_.services_.visit(session_.source_, [&](const Service& service) {
      const bool is_here = service.key.frequency == session_.frequency_;
      if (is_here && (!service.added || received.count(service.key) != 0))
        listed.insert(service.key);
      return true;
    });
    return psi_->has_own_vct() && listed == received;
  }
  if (tables.vct) return true;
  if (!tables.pat) return false;
  bool had_vct = false;
  session_.tuner_.services_.visit(session_.source_, [&](const Service& service) {
    had_vct |= service.key.frequency == session_.frequency_ && !service.from_pmt;
    return !had_vct;
  });
  return !had_vct;
}

void LiveTuner::Stream::update_guide() {
  const auto offset = psip_.gps_utc_offset();
  const bool changed = psip_.take_guide_change();
  if (changed || offset != guide_offset_) {
    guide_offset_ = offset;
    const GuideTables& tables = psip_.guide();
    session_.while_tuned([&] {
      LiveTuner& tuner = session_.tuner_;
      tuner.events_.raise_guide_change(
          tuner.guide_.update(session_.source_, session_.frequency_, tables, offset));
    });
  }
  if (total_ - mgt_byte_ >= kReadLimit) psip_.give_up_silent();
  if (!guide_complete_told_ && psip_.guide_complete()) {
    guide_complete_told_ = true;
    session_.raise(AFW_EPG_COMPLETE);
  }
}

LiveTuner::LiveTuner(ServiceList& services, Guide& guide, RatingRegions& regions,
                     const AlertSettings& alert_settings, EventQueue& events,
                     std::function<void()> services_changed, std::function<void()> looked)
    : services_(services),
      guide_(guide),
      regions_(regions),
      alert_settings_(alert_settings),
      events_(events),
      services_changed_(std::move(services_changed)),
      looked_(std::move(looked)) {}

LiveTuner::~LiveTuner() { shut_down(); }

void LiveTuner::play(const ServiceKey& service) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (shut_down_) return;
  const bool same =
      service_ && service_->source == service.source && service_->frequency == service.frequency;
  service_ = service;
  if (same) {
    if (locked_) events_.raise(*locked_ ? AFW_CHANNEL_PLAY_SUCCESS : AFW_CHANNEL_PLAY_FAILURE);
    return;
  }
  forget_carrier();
  if (!thread_.joinable()) thread_ = start_thread("live tuner", [this] { run(); });
  changed_.notify_all();
}

void LiveTuner::report_failure() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!service_) events_.raise(AFW_TUNER_UNLOCKED);
  events_.raise(AFW_CHANNEL_PLAY_FAILURE);
}

void LiveTuner::stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!service_) return;
  service_.reset();
  forget_carrier();
  changed_.notify_all();
}

// Under the lock: another tuning begins, or none.
void LiveTuner::forget_carrier() {
  ++tuning_;
  locked_.reset();
  head_read_ = false;
  advisories_.clear();
}

bool LiveTuner::is_tuned_to(uint32_t source, uint32_t frequency) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return service_ && service_->source == source && service_->frequency == frequency;
}

std::vector<Advisory> LiveTuner::advisories(const ServiceKey& service,
                                            uint16_t program_number) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const bool tuned =
      service_ && service_->source == service.source && service_->frequency == service.frequency;
  const auto found = tuned ? advisories_.find(program_number) : advisories_.end();
  return found == advisories_.end() ? std::vector<Advisory>() : found->second;
}

bool LiveTuner::has_read(const ServiceKey& service) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return service_ && service_->source == service.source &&
         service_->frequency == service.frequency && (head_read_ || locked_ == false);
}

void LiveTuner::shut_down() {
  std::unique_lock<std::mutex> lock(mutex_);
  shut_down_ = true;
  service_.reset();
  forget_carrier();
  changed_.notify_all();
  if (!thread_.joinable()) return;
  lock.unlock();
  thread_.join();
}

void LiveTuner::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return shut_down_ || service_; });
    if (shut_down_) return;
    const uint64_t tuning = tuning_;
    const ServiceKey service = *service_;
    lock.unlock();
    try {
      Session(*this, service, tuning).run();
      lock.lock();
    } catch (const std::exception& e) {
      log().Error("%s %u Hz: receiving ended: %s", modulation_name(service.source),
                  service.frequency, e.what());
      lock.lock();
      changed_.wait(lock, [&] { return tuning_ != tuning; });
    }
  }
}

}  // namespace atschost
