#include "receiver/tuners/live_stream.h"

#include <chrono>
#include <string>

#include "process/log.h"
#include "process/memory.h"
#include "receiver/tables/table_ids.h"
#include "receiver/tuners/carrier.h"

namespace atschost {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kTick(250);             // between two looks at file, clock and alerts
constexpr milliseconds kUpdateInterval(1000);  // of guide and service list

}  // namespace

LiveStream::LiveStream(Tuning& tuning, Alerts& alerts, ProgrammeWatch& programmes, const File& file,
                       const StreamId& id)
    : tuning_(tuning),
      alerts_(alerts),
      programmes_(programmes),
      reader_(file, id),
      carrier_(tuning.source()),
      services_(tuning, carrier_),
      guide_(tuning, psip_),
      time_(tuning, id),
      demux_([this](uint16_t pid) { return carrier_.wants(pid) || psip_.wants(pid); },
             [this](const Section& section) {
               const char* const fault = pushPsip(section);
               const char* const other = carrier_.push(section, reader_.position());
               return fault ? fault : other;
             },
             [this](const uint8_t* packet) { onPacket(packet); }) {}

void LiveStream::run() {
  auto nextTick = steady_clock::now() + kTick;
  auto nextUpdate = steady_clock::now() + kUpdateInterval;
  while (tuning_.isTuned()) {
    if (steady_clock::now() >= nextTick) {
      nextTick = steady_clock::now() + kTick;
      if (reader_.hasChanged()) return;
      tick();
    }
    if (!inHead_ && steady_clock::now() >= nextUpdate) {
      nextUpdate = steady_clock::now() + kUpdateInterval;
      update();
    }
    const bool fast = inHead_ || tuning_.environment().air.fast();
    if (!reader_.readBurst(fast)) {
      endPass();
      continue;
    }
    demux_.push(reader_.data(), reader_.size());
    if (inHead_ && (reader_.position().bytes >= kReadLimit || hasTables())) endHead();
    if (!fast) tuning_.pauseUntil(reader_.burstDue());
  }
}

void LiveStream::onPacket(const uint8_t* packet) {
  if (!locked_) {
    locked_ = true;
    tuning_.setLocked(true);
  }
  reader_.pace().packet(packet);
}

const char* LiveStream::pushPsip(const Section& section) {
  if (!psip_.wants(section.pid)) return nullptr;
  if (const char* fault = psip_.push(section)) return fault;
  switch (section.tableId) {
    case kSttId:
      if (const auto time = psip_.takeSystemTime()) {
        reader_.pace().systemTime(time->gpsSeconds);
        time_.receive(*time);
      }
      break;
    case kMgtId:
      if (section.current) guide_.followMgt(section.version, reader_.position().bytes);
      break;
    case kEmergencyAlertId:
      if (const auto alert = psip_.takeAlert(); alert && tuning_.isTuned())
        alerts_.receive(*alert, steady_clock::now(), time_.stationTime());
      break;
    default:
      break;
  }
  return nullptr;
}

bool LiveStream::hasTables() const {
  return carrier_.decoder().complete() && psip_.guideComplete() && psip_.gpsUtcOffset();
}

void LiveStream::tick() {
  time_.update();
  alerts_.check(steady_clock::now(), time_.stationTime());
  programmes_.check();
  services_.updateAdvisories(reader_.position());
  tuning_.environment().looked();
}

// Handles the end of the file, which begins anew.
void LiveStream::endPass() {
  demux_.finish();
  psip_.endPass();
  reader_.endPass();
  if (!locked_) tuning_.setLocked(false);  // there is not a single packet
  // A second pass shows what came before the tables that announce it.
  if (inHead_ && (reader_.position().passes == 2 || !locked_ || reader_.hasFailed())) endHead();
  if (!inHead_) tuning_.pauseUntil(reader_.passDue());
  reader_.beginPass();
}

void LiveStream::endHead() {
  inHead_ = false;
  update();
  services_.updateAdvisories(reader_.position());
  tuning_.setHeadRead();
  tuning_.environment().looked();
  const CarrierTables& tables = carrier_.decoder().tables();
  log().Info("%s: VCT %s, PAT %s, %zu EITs; %.0f packets a second", reader_.id().path.c_str(),
             tables.vct ? "found" : "none", tables.pat ? "found" : "none",
             psip_.guide().eits.size(), reader_.pace().packetsPerSecond());
  giveBackMemory();
}

void LiveStream::update() {
  services_.update(reader_);
  guide_.update(reader_.position().bytes);
  tuning_.environment().regions.receive(psip_.takeRatingRegions());
  if (const std::string faults = demux_.takeFaults(); !faults.empty())
    log().Warn("%s: %s", reader_.id().path.c_str(), faults.c_str());
}

}  // namespace atschost
