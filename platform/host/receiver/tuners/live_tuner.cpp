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
#include "process/log.h"
#include "receiver/air/frequency_plan.h"
#include "receiver/events/alerts.h"
#include "receiver/stream/demux.h"
#include "receiver/stream/pace.h"
#include "receiver/stream/transport.h"
#include "receiver/tables/psi_decoder.h"
#include "receiver/tables/psip_decoder.h"
#include "receiver/tables/section_fault.h"
#include "receiver/tables/table_ids.h"
#include "receiver/tuners/carrier.h"
#include "receiver/tuners/decoder_log.h"

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

}  // namespace

// One tuning, from play() until the carrier is left.
class LiveTuner::Session {
 public:
  Session(LiveTuner& tuner, const ServiceKey& service, uint64_t tuning)
      : tuner_(tuner),
        source_(service.source),
        frequency_(service.frequency),
        tuning_(tuning),
        alerts_(tuner.events_, tuner.alertSettings_, service.source) {}

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
  bool isTuned() {
    return while_tuned([] {});
  }
  void pauseUntil(Instant instant) {
    std::unique_lock<std::mutex> lock(tuner_.mutex_);
    tuner_.changed_.wait_until(lock, instant, [this] { return tuner_.tuning_ != tuning_; });
  }

  void raise(AFW_event_t event) {
    while_tuned([&] { tuner_.events_.raise(event); });
  }
  void setLocked(bool locked);
  void checkTransition();

  LiveTuner& tuner_;
  const uint32_t source_;
  const uint32_t frequency_;
  const uint64_t tuning_;
  Alerts alerts_;
  // The clock when the present programme was looked for last, and of which service.
  uint32_t lookedAt_ = 0;
  std::optional<ServiceKey> lookedFor_;
};

// One content of the carrier's file.
class LiveTuner::Stream {
 public:
  Stream(Session& session, const File& file, StreamId id)
      : session_(session),
        file_(file),
        id_(std::move(id)),
        psi_(std::make_unique<PsiDecoder>(session.source_, logDecoderMessage)),
        demux_([this](uint16_t pid) { return psi_->wants(pid) || psip_.wants(pid); },
               [this](const Section& section) {
                 const char* fault = pushPsip(section);
                 const char* other = pushPsi(section);
                 return fault ? fault : other;
               },
               [this](const uint8_t* packet) { onPacket(packet); }) {}

  // Until the carrier is left or the file is another one.
  void run();

 private:
  void onPacket(const uint8_t* packet);
  const char* pushPsip(const Section& section);
  const char* pushPsi(const Section& section);
  void takeTime();
  void followTime();
  bool readBurst(size_t packets, size_t& got);
  bool hasChanged();
  bool hasTables() const {
    return psi_->complete() && psip_.guideComplete() && psip_.gpsUtcOffset();
  }
  void endHead();
  void update();
  enum Level { kNothing, kSettled, kComplete };  // of what is known of the services
  Level level() const;
  void updateAdvisories();
  void updateServices();
  bool mayReplaceServices(const std::vector<Service>& found) const;
  void updateGuide();
  std::optional<uint32_t> stationTime() const {
    return session_.tuner_.clock_.stationTime(id_, now());
  }

  // Identity of a section: PID, table_id, table_id_extension, section_number.
  using SectionKey = std::tuple<uint16_t, uint8_t, uint16_t, uint8_t>;

  Session& session_;
  const File& file_;
  const StreamId id_;
  StreamId changing_;  // what the file was seen to become
  std::vector<uint8_t> chunk_ = std::vector<uint8_t>(kMaxBurst * kPacketSize);
  bool readFailed_ = false;
  bool locked_ = false;
  bool inHead_ = true;   // what is read first, and fast
  unsigned passes_ = 0;  // read to the end
  size_t total_ = 0;     // bytes read
  Pace pace_;

  std::unique_ptr<PsiDecoder> psi_;
  std::map<SectionKey, uint32_t> sections_;  // CRC_32 of those of which services are made
  unsigned psiFirstPass_ = 0;                // passes_ and total_ when the decoder was made
  size_t psiFirstByte_ = 0;
  bool hadPat_ = false;
  Level servicesTaken_ = kNothing;                // of this decoder
  std::pair<size_t, bool> advisoriesTaken_ = {};  // number of PMTs, and whether these are all
  unsigned serviceRound_ = 0;                     // of the tuner's, taken last

  PsipDecoder psip_;
  std::optional<SystemTime> time_;  // received and not followed yet
  Instant nextTime_;                // not followed again before
  bool timeTold_ = false;
  int mgtVersion_ = -1;
  size_t mgtByte_ = 0;  // total_ when that version came
  bool guideCompleteTold_ = false;
  std::optional<uint8_t> guideOffset_;

  Demux demux_;  // last: it hands sections to what is above
};

void LiveTuner::Session::run() {
  int told = 0;
  while (isTuned()) {
    const std::string path = tuner_.air_.carrierPath(source_, frequency_);
    errno = ENOENT;
    const File file = path.empty() ? File() : openRegular(path);
    const auto id = file ? streamId(path, file) : std::nullopt;
    if (id) {
      Stream(*this, file, *id).run();
      continue;
    }
    if (const int error = errno; error != ENOENT && error != ENOTDIR && error != told) {
      log().Warn("%s: no lock: %s", path.c_str(), std::strerror(error));
      told = error;
    }
    alerts_.stop();
    setLocked(false);
    tuner_.looked_();
    pauseUntil(now() + kTick);
  }
  alerts_.stop();
}

void LiveTuner::Session::setLocked(bool locked) {
  while_tuned([&] {
    if (tuner_.locked_ == locked) return;
    tuner_.locked_ = locked;
    if (!locked) {
      tuner_.advisories_.clear();
      tuner_.headRead_ = false;
    }
    log().Info("%s %u Hz: %s", modulationName(source_), frequency_,
               locked ? "locked" : "no signal");
    tuner_.events_.raise(locked ? AFW_TUNER_LOCKED : AFW_TUNER_UNLOCKED);
    tuner_.events_.raise(locked ? AFW_CHANNEL_PLAY_SUCCESS : AFW_CHANNEL_PLAY_FAILURE);
  });
}

// A programme of the current service that began between the last look and this one.
void LiveTuner::Session::checkTransition() {
  const uint32_t time = tuner_.clock_.now();
  const uint32_t before = std::exchange(lookedAt_, time);
  std::optional<ServiceKey> key;
  while_tuned([&] { key = tuner_.service_; });
  if (!key) return;
  const bool same = lookedFor_ == key;
  lookedFor_ = key;
  if (!same || time <= before || time - before > kLongestStep) return;
  uint16_t sourceId = 0;
  tuner_.services_.visit(key->source, [&](const Service& service) {
    if (!(service.key == *key)) return true;
    sourceId = service.sourceId;
    return false;
  });
  if (sourceId == 0) return;
  const auto events = tuner_.guide_.events(key->source, key->frequency, sourceId);
  const auto next =
      std::upper_bound(events->begin(), events->end(), before,
                       [](uint32_t t, const ShownEvent& event) { return t < event.start; });
  if (next != events->end() && next->start <= time) raise(AFW_EVENT_TRANSITION);
}

void LiveTuner::Stream::run() {
  Instant nextTick = now() + kTick;
  Instant nextUpdate = now() + kUpdateInterval;
  Instant passBegin = now();
  Instant due = now();  // of the next burst
  bool wasFast = true;
  while (session_.isTuned()) {
    if (now() >= nextTick) {
      nextTick = now() + kTick;
      if (hasChanged()) return;
      followTime();
      session_.alerts_.check(now(), stationTime());
      session_.checkTransition();
      updateAdvisories();
      session_.tuner_.looked_();
    }
    if (!inHead_ && now() >= nextUpdate) {
      nextUpdate = now() + kUpdateInterval;
      update();
    }

    const bool fast = inHead_ || session_.tuner_.air_.fast();
    const double rate = pace_.packetsPerSecond();
    const auto burst = static_cast<size_t>(rate * kBurst.count() / 1000);
    size_t got = 0;
    const bool more = readBurst(fast ? kMaxBurst : std::clamp<size_t>(burst, 1, kMaxBurst), got);
    if (inHead_ && more && (total_ >= kReadLimit || hasTables())) endHead();
    if (!more) {
      demux_.finish();
      psip_.endPass();
      pace_.seam();
      ++passes_;
      if (!locked_) session_.setLocked(false);  // there is not a single packet
      // The second time shows what came before the tables that tell of it.
      if (inHead_ && (passes_ == 2 || !locked_ || readFailed_)) endHead();
      if (!inHead_) session_.pauseUntil(std::max<Instant>(passBegin + kShortestPass, due));
      passBegin = due = now();
    } else if (!fast) {
      if (wasFast || due + kLongestLag < now()) due = now();
      due += std::chrono::duration_cast<std::chrono::steady_clock::duration>(
          std::chrono::duration<double>(static_cast<double>(got) / kPacketSize / rate));
      session_.pauseUntil(due);
    }
    wasFast = fast;
  }
}

// Returns false at the end of the file, which begins anew.
bool LiveTuner::Stream::readBurst(size_t packets, size_t& got) {
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
  if (result < 0 && !std::exchange(readFailed_, true))
    log().Warn("%s: reading: %m", id_.path.c_str());
  if (lseek(file_.fd(), 0, SEEK_SET) != 0) readFailed_ = true;
  return false;
}

// Whether another content has taken the file's place. A file that is being written counts once it
// stays as it is.
bool LiveTuner::Stream::hasChanged() {
  const auto present = streamId(id_.path);
  if (!present) return true;
  if (*present == id_) return false;
  const bool settled = *present == changing_;
  changing_ = *present;
  return settled || !present->sameFile(id_);
}

void LiveTuner::Stream::onPacket(const uint8_t* packet) {
  if (!locked_) {
    locked_ = true;
    session_.setLocked(true);
  }
  pace_.packet(packet);
}

const char* LiveTuner::Stream::pushPsip(const Section& section) {
  if (!psip_.wants(section.pid)) return nullptr;
  if (const char* fault = psip_.push(section)) return fault;
  switch (section.tableId) {
    case kSttId:
      takeTime();
      break;
    case kMgtId:
      if (section.current && mgtVersion_ != section.version) {
        mgtVersion_ = section.version;
        mgtByte_ = total_;
        guideCompleteTold_ = false;
      }
      break;
    case kEmergencyAlertId:
      if (const auto alert = psip_.takeAlert(); alert && session_.isTuned())
        session_.alerts_.receive(*alert, now(), stationTime());
      break;
    default:
      break;
  }
  return nullptr;
}

void LiveTuner::Stream::takeTime() {
  const auto time = psip_.takeSystemTime();
  if (!time) return;
  pace_.systemTime(time->gpsSeconds);
  time_ = time;
  followTime();
}

void LiveTuner::Stream::followTime() {
  const Instant present = now();
  if (!time_ || present < nextTime_) return;
  nextTime_ = present + kUpdateInterval;
  const SystemTime time = *std::exchange(time_, std::nullopt);
  session_.while_tuned([&] {
    const Clock::Effect effect = session_.tuner_.clock_.follow(id_, time, present);
    EventQueue& events = session_.tuner_.events_;
    if (!timeTold_ || effect.detailsChanged) events.raiseTime(AFW_STT_UPDATE, time);
    if (effect.timeChanged) events.raiseTime(AFW_TIME_CHANGE, time);
    timeTold_ = true;
  });
}

// Another version of a table of which services are made calls for a new decoder, which takes the
// first version that it sees.
const char* LiveTuner::Stream::pushPsi(const Section& section) {
  const uint16_t pid = section.pid;
  if (!psi_->wants(pid)) return nullptr;
  const uint8_t id = section.tableId;
  const bool isOurs = pid == kPatPid        ? id == kPatId
                      : pid == kPsipBasePid ? id == vctIdOf(session_.source_)
                                            : id == kPmtId;
  if (!isOurs) return nullptr;
  if (!section.current) return psi_->push(section);
  const SectionKey key(pid, id, section.extension, section.number);
  const auto known = sections_.find(key);
  if (known == sections_.end() || known->second != section.crc) {
    if (const char* fault = sectionFault(section)) return fault;
    const bool isChange = known != sections_.end() || servicesTaken_ != kNothing;
    if (sections_.size() >= kMaxSections) sections_.clear();
    sections_[key] = section.crc;
    if (isChange) {
      psi_ = std::make_unique<PsiDecoder>(session_.source_, logDecoderMessage);
      advisoriesTaken_ = {};
      psiFirstPass_ = passes_;
      psiFirstByte_ = total_;
      servicesTaken_ = kNothing;
    }
  }
  const char* fault = psi_->push(section);
  hadPat_ |= psi_->tables().pat.has_value();
  return fault;
}

void LiveTuner::Stream::endHead() {
  inHead_ = false;
  update();
  updateAdvisories();
  session_.while_tuned([&] { session_.tuner_.headRead_ = true; });
  session_.tuner_.looked_();
  const CarrierTables& tables = psi_->tables();
  log().Info("%s: VCT %s, PAT %s, %zu EITs; %.0f packets a second", id_.path.c_str(),
             tables.vct ? "found" : "none", tables.pat ? "found" : "none",
             psip_.guide().eits.size(), pace_.packetsPerSecond());
}

void LiveTuner::Stream::update() {
  updateServices();
  updateGuide();
  session_.tuner_.regions_.receive(psip_.takeRatingRegions());
  if (const std::string faults = demux_.takeFaults(); !faults.empty())
    log().Warn("%s: %s", id_.path.c_str(), faults.c_str());
}

LiveTuner::Stream::Level LiveTuner::Stream::level() const {
  const bool seenWhole = passes_ - psiFirstPass_ >= 2 || total_ - psiFirstByte_ >= kReadLimit;
  return psi_->complete() ? kComplete : seenWhole ? kSettled : kNothing;
}

// What the PMTs say of the programmes that are on. Services whose PMT has not come again yet are
// rated as they were.
void LiveTuner::Stream::updateAdvisories() {
  const CarrierTables& tables = psi_->tables();
  const std::pair<size_t, bool> state(tables.pmts.size(), level() != kNothing);
  if (std::exchange(advisoriesTaken_, state) == state) return;
  session_.while_tuned([&] {
    auto& known = session_.tuner_.advisories_;
    if (state.second) known.clear();
    for (auto it = known.begin(); it != known.end();)
      it = tables.pat && !tables.pat->pmtPids.count(it->first) ? known.erase(it) : std::next(it);
    for (const auto& [program, streams] : tables.pmts) known.erase(program);
    for (const auto& [program, advisories] : tables.advisories) known[program] = advisories;
  });
}

void LiveTuner::Stream::updateServices() {
  const Level level = this->level();
  const unsigned round = session_.tuner_.serviceRounds_;
  if (std::exchange(serviceRound_, round) != round) servicesTaken_ = kNothing;
  if (level <= servicesTaken_) return;
  servicesTaken_ = level;
  auto found = buildServices(psi_->tables(), session_.source_, session_.frequency_);
  if (level == kSettled && !mayReplaceServices(found)) return;
  LiveTuner& tuner = session_.tuner_;
  ServiceList::Change change;
  session_.while_tuned([&] {
    change = tuner.services_.replace(session_.source_, session_.frequency_, std::move(found));
  });
  if (!change.any()) return;
  log().Info("%s: services: %zu deleted, %zu added, %zu changed", id_.path.c_str(), change.deleted,
             change.added, change.updated);
  tuner.servicesChanged_();
  for (size_t i = 0; i < change.deleted; ++i) tuner.events_.raise(AFW_SERVICE_DELETED);
  for (size_t i = 0; i < change.added; ++i) tuner.events_.raise(AFW_SERVICE_ADDED);
  for (size_t i = 0; i < change.updated; ++i) tuner.events_.raise(AFW_SERVICE_UPDATE);
  tuner.events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  // Events of a service that is listed anew may be known already.
  std::vector<uint16_t> known;
  for (const uint16_t id : change.sourceIds)
    if (!tuner.guide_.events(session_.source_, session_.frequency_, id)->empty())
      known.push_back(id);
  tuner.events_.raiseGuideUpdate(known);
}

// Whether tables that never became complete are all that the carrier has, rather than what is left
// of them.
bool LiveTuner::Stream::mayReplaceServices(const std::vector<Service>& found) const {
  const CarrierTables& tables = psi_->tables();
  if (tables.pat ? psi_->awaitsPmts() : hadPat_) {
    // Nothing is known to be gone; yet the VCT tells what the services are now. Those that were
    // added by hand stay anyway.
    std::set<ServiceKey> listed, received;
    for (const Service& service : found) received.insert(service.key);
    session_.tuner_.services_.visit(session_.source_, [&](const Service& service) {
      const bool isHere = service.key.frequency == session_.frequency_;
      if (isHere && (!service.added || received.count(service.key) != 0))
        listed.insert(service.key);
      return true;
    });
    return psi_->hasOwnVct() && listed == received;
  }
  if (tables.vct) return true;
  if (!tables.pat) return false;
  bool hadVct = false;
  session_.tuner_.services_.visit(session_.source_, [&](const Service& service) {
    hadVct |= service.key.frequency == session_.frequency_ && !service.fromPmt;
    return !hadVct;
  });
  return !hadVct;
}

void LiveTuner::Stream::updateGuide() {
  const auto offset = psip_.gpsUtcOffset();
  const bool changed = psip_.takeGuideChange();
  if (changed || offset != guideOffset_) {
    guideOffset_ = offset;
    const GuideTables& tables = psip_.guide();
    session_.while_tuned([&] {
      LiveTuner& tuner = session_.tuner_;
      tuner.events_.raiseGuideChange(
          tuner.guide_.update(session_.source_, session_.frequency_, tables, offset));
    });
  }
  if (total_ - mgtByte_ >= kReadLimit) psip_.giveUpSilent();
  if (!guideCompleteTold_ && psip_.guideComplete()) {
    guideCompleteTold_ = true;
    session_.raise(AFW_EPG_COMPLETE);
  }
}

LiveTuner::LiveTuner(const Air& air, Clock& clock, ServiceList& services, Guide& guide,
                     RatingRegions& regions, const AlertSettings& alertSettings, EventQueue& events,
                     std::function<void()> servicesChanged, std::function<void()> looked)
    : air_(air),
      clock_(clock),
      services_(services),
      guide_(guide),
      regions_(regions),
      alertSettings_(alertSettings),
      events_(events),
      servicesChanged_(std::move(servicesChanged)),
      looked_(std::move(looked)) {}

LiveTuner::~LiveTuner() { shutDown(); }

void LiveTuner::play(const ServiceKey& service) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (thread_.isEnding()) return;
  const bool same =
      service_ && service_->source == service.source && service_->frequency == service.frequency;
  service_ = service;
  if (same) {
    if (locked_) events_.raise(*locked_ ? AFW_CHANNEL_PLAY_SUCCESS : AFW_CHANNEL_PLAY_FAILURE);
    return;
  }
  forgetCarrier();
  thread_.start("live tuner", [this] { run(); });
  changed_.notify_all();
}

void LiveTuner::reportFailure() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!service_) events_.raise(AFW_TUNER_UNLOCKED);
  events_.raise(AFW_CHANNEL_PLAY_FAILURE);
}

void LiveTuner::stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!service_) return;
  service_.reset();
  forgetCarrier();
  changed_.notify_all();
}

// Under the lock: another tuning begins, or none.
void LiveTuner::forgetCarrier() {
  ++tuning_;
  locked_.reset();
  headRead_ = false;
  advisories_.clear();
}

bool LiveTuner::isTunedTo(uint32_t source, uint32_t frequency) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return service_ && service_->source == source && service_->frequency == frequency;
}

std::vector<Advisory> LiveTuner::advisories(const ServiceKey& service,
                                            uint16_t programNumber) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const bool tuned =
      service_ && service_->source == service.source && service_->frequency == service.frequency;
  const auto found = tuned ? advisories_.find(programNumber) : advisories_.end();
  return found == advisories_.end() ? std::vector<Advisory>() : found->second;
}

bool LiveTuner::hasRead(const ServiceKey& service) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return service_ && service_->source == service.source &&
         service_->frequency == service.frequency && (headRead_ || locked_ == false);
}

void LiveTuner::shutDown() {
  std::unique_lock<std::mutex> lock(mutex_);
  thread_.askToEnd();
  service_.reset();
  forgetCarrier();
  changed_.notify_all();
  lock.unlock();
  thread_.join();
}

void LiveTuner::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return thread_.isEnding() || service_; });
    if (thread_.isEnding()) return;
    const uint64_t tuning = tuning_;
    const ServiceKey service = *service_;
    lock.unlock();
    try {
      Session(*this, service, tuning).run();
      lock.lock();
    } catch (const std::exception& e) {
      log().Error("%s %u Hz: receiving ended: %s", modulationName(service.source),
                  service.frequency, e.what());
      lock.lock();
      changed_.wait(lock, [&] { return tuning_ != tuning; });
    }
  }
}

}  // namespace atschost
