#include "receiver/tuners/scanner.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "middleware_types.h"
#include "process/log.h"
#include "process/memory.h"
#include "process/thread.h"
#include "receiver/air/air.h"
#include "receiver/tuners/carrier.h"

namespace atschost {

using std::chrono::steady_clock;

struct Scanner::Job {
  uint32_t source = 0;
  std::vector<RfChannel> channels;
  AICS_scan_callback callback = nullptr;
  AICS_scan_progress progress{};
  std::atomic<bool> stopped{false};  // also read while a carrier is being read
  Outcome outcome;
  bool reporting = false;  // the callback runs or is about to run
  Thread thread;
};

Scanner::Scanner(const Air& air, Clock& clock, ServiceList& list, Hooks hooks)
    : air_(air), clock_(clock), list_(list), hooks_(std::move(hooks)) {}

Scanner::~Scanner() { shutDown(); }

bool Scanner::start(const AICS_search_request& request, AICS_scan_callback callback) {
  if (!callback || !isSource(request.source)) {
    log().Error("scan refused: %s", callback ? "unknown source" : "no callback");
    return false;
  }
  auto job = std::make_shared<Job>();
  job->source = request.source;
  job->callback = callback;
  job->progress.band_mask = static_cast<int32_t>(modulationOf(request.source));
  if (request.search_type == AICS_SEARCH_AUTOMATIC) {
    job->channels = planOf(request.source);
  } else if (request.search_type == AICS_SEARCH_MANUAL && isTunable(request.frequency)) {
    job->channels = {{rfChannel(request.source, request.frequency), request.frequency}};
  } else {
    log().Error("scan refused: search type %u, frequency %u Hz", request.search_type,
                request.frequency);
    return false;
  }

  const MutexLock lock(mutex_);
  if (running_ || shutDown_) {
    log().Error("scan refused: %s", running_ ? "another one runs" : "the process ends");
    return false;
  }
  jobs_.remove_if([](const auto& old) { return old->thread.hasEnded(); });
  job->thread.start("channel scan", [this, job] { run(*job); });
  jobs_.push_back(job);
  running_ = std::move(job);
  return true;
}

bool Scanner::stop() {
  const MutexLock lock(mutex_);
  if (!running_) return false;
  running_->stopped = true;
  const Outcome outcome = std::move(running_->outcome);
  running_.reset();
  changed_.notifyAll();
  hooks_.ended(outcome);
  return true;
}

bool Scanner::isRunning() const {
  const MutexLock lock(mutex_);
  return running_ != nullptr;
}

void Scanner::shutDown(std::optional<std::chrono::milliseconds> patience) {
  std::list<std::shared_ptr<Job>> jobs;
  {
    const MutexLock lock(mutex_);
    shutDown_ = true;
  }
  stop();
  {
    const MutexLock lock(mutex_);
    jobs.swap(jobs_);
  }
  for (const auto& job : jobs) {
    const bool isOwn = job->thread.isCurrent();
    if (!job->thread.join(patience) && !isOwn)
      log().Warn("a scan callback has not returned; its thread is left running");
  }
}

void Scanner::run(Job& job) {
  try {
    bool running = report(job, AICS_STATE_START);
    for (size_t i = 0; running && i < job.channels.size(); ++i) {
      running = visit(job, job.channels[i]);
      job.progress.progress = static_cast<uint8_t>((i + 1) * 100 / job.channels.size());
      running = running && report(job, AICS_STATE_PROGRESS);
    }
    if (running) report(job, AICS_STATE_OVER);
  } catch (const std::exception& e) {
    log().Error("scan ended: %s", e.what());
  } catch (...) {
    log().Error("scan ended: its callback has thrown");
  }
  giveBackMemory();
  const MutexLock lock(mutex_);
  if (running_.get() == &job) running_.reset();
}

// Returns false when the scan has been stopped.
bool Scanner::visit(Job& job, const RfChannel& channel) {
  {
    MutexLock lock(mutex_);
    if (isStopped(job)) return false;
    hooks_.tune(job.source, channel.frequency);
    const auto end = steady_clock::now() + air_.dwell();
    while (!isStopped(job) && changed_.waitUntil(lock, end)) {
    }
    if (isStopped(job)) return false;
  }
  CarrierResult carrier;
  Outcome outcome;
  try {
    carrier = readCarrier(air_, clock_, job.source, channel.frequency, job.stopped);
    if (carrier.known) hooks_.take(job.source, channel.frequency, carrier, outcome);
  } catch (const std::exception& e) {
    log().Error("%s %u Hz: %s", modulationName(job.source), channel.frequency, e.what());
    carrier = {};
  }

  AICS_scan_progress& progress = job.progress;
  progress.channel_number = channel.number;
  progress.current_frequency = channel.frequency;
  progress.carrier_type = 0;
  if (carrier.locked) {
    progress.lock_frequency = channel.frequency;
    progress.carrier_type = static_cast<int32_t>(modulationOf(job.source));
  }
  for (const Service& service : carrier.services) {
    ++progress.services_found;
    ++(service.type == AISRV_TYPE_RADIO  ? progress.radio_services
       : service.type == AISRV_TYPE_DATA ? progress.data_services
                                         : progress.tv_services);
  }

  // With the lock held, so that a stopped scan changes nothing after stop() has returned.
  const MutexLock lock(mutex_);
  const bool running = !isStopped(job);
  if (running && carrier.known) {
    const ServiceList::Change change =
        list_.replace(job.source, channel.frequency, std::move(carrier.services));
    outcome.services = change.any();
    for (const uint16_t id : change.sourceIds)
      outcome.listed.emplace(job.source, channel.frequency, id);
  }
  if (!running) {
    hooks_.ended(outcome);  // the guide is already stored
    return false;
  }
  job.outcome.services |= outcome.services;
  job.outcome.guide |= outcome.guide;
  job.outcome.guidePartial |= outcome.guidePartial;
  job.outcome.sourceIds.insert(outcome.sourceIds.begin(), outcome.sourceIds.end());
  job.outcome.listed.insert(outcome.listed.begin(), outcome.listed.end());
  return true;
}

// Returns false when the scan has been stopped. Only one callback runs at a time, so this waits for
// the callback of a stopped scan. No lock is held during the callback, because it may wait for a
// thread that calls stop().
bool Scanner::report(Job& job, int state) {
  const auto isReporting = [](const auto& other) { return other->reporting; };
  MutexLock lock(mutex_);
  while (!isStopped(job) && std::any_of(jobs_.begin(), jobs_.end(), isReporting))
    changed_.wait(lock);
  if (isStopped(job)) return false;
  // The next scan can start as soon as the callback has reported the end.
  if (state == AICS_STATE_OVER) running_.reset();
  job.reporting = true;
  AICS_scan_progress copy = job.progress;
  lock.unlock();
  std::exception_ptr thrown;
  try {
    job.callback(&copy, state);
    if (state == AICS_STATE_OVER) hooks_.ended(job.outcome);
  } catch (...) {
    thrown = std::current_exception();
  }
  lock.lock();
  job.reporting = false;
  changed_.notifyAll();
  if (thrown) std::rethrow_exception(thrown);
  return true;
}

}  // namespace atschost
