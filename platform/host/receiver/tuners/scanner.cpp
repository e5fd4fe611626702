#include "receiver/tuners/scanner.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "middleware_types.h"
#include "receiver/log.h"
#include "receiver/stream/air.h"
#include "receiver/thread.h"
#include "receiver/tuners/carrier.h"

namespace atschost {

struct Scanner::Job {
  uint32_t source = 0;
  std::vector<RfChannel> channels;
  AICS_scan_callback callback = nullptr;
  AICS_scan_progress progress{};
  std::atomic<bool> stopped{false};  // also read while a carrier is being read
  Outcome outcome;
  bool reporting = false;  // the callback runs, or is about to
  bool done = false;       // the thread is about to end
  std::thread thread;
};

Scanner::Scanner(ServiceList& list, Hooks hooks) : list_(list), hooks_(std::move(hooks)) {}

Scanner::~Scanner() { shutDown(std::chrono::hours(1)); }

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

  std::lock_guard<std::mutex> lock(mutex_);
  if (running_ || shutDown_) {
    log().Error("scan refused: %s", running_ ? "another one runs" : "the process ends");
    return false;
  }
  for (auto it = jobs_.begin(); it != jobs_.end();) {
    if ((*it)->done) {
      (*it)->thread.join();
      it = jobs_.erase(it);
    } else {
      ++it;
    }
  }
  jobs_.push_back(job);
  try {
    job->thread = startThread("channel scan", [this, job] { run(*job); });
  } catch (...) {
    jobs_.pop_back();
    throw;
  }
  running_ = std::move(job);
  return true;
}

bool Scanner::stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!running_) return false;
  running_->stopped = true;
  const Outcome outcome = std::move(running_->outcome);
  running_.reset();
  changed_.notify_all();
  hooks_.ended(outcome);
  return true;
}

bool Scanner::isRunning() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return running_ != nullptr;
}

void Scanner::shutDown(std::chrono::milliseconds patience) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    shutDown_ = true;
  }
  stop();
  std::unique_lock<std::mutex> lock(mutex_);
  const auto isOwn = [](const std::shared_ptr<Job>& job) {
    return job->thread.get_id() == std::this_thread::get_id();
  };
  changed_.wait_for(lock, patience, [&] {
    for (const auto& job : jobs_)
      if (!job->done && !isOwn(job)) return false;
    return true;
  });
  for (const auto& job : jobs_) {
    if (job->done) {
      job->thread.join();
      continue;
    }
    if (!isOwn(job)) log().Warn("a scan callback has not returned; its thread is left running");
    job->thread.detach();
  }
  jobs_.clear();
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
  std::lock_guard<std::mutex> lock(mutex_);
  if (running_.get() == &job) running_.reset();
  job.done = true;
  changed_.notify_all();
}

// Returns false when the scan has been stopped.
bool Scanner::visit(Job& job, const RfChannel& channel) {
  {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto stopped = [&] { return running_.get() != &job; };
    if (stopped()) return false;
    hooks_.tune(job.source, channel.frequency);
    if (changed_.wait_for(lock, std::chrono::milliseconds(dwell()), stopped)) return false;
  }
  CarrierResult carrier;
  Outcome outcome;
  try {
    carrier = readCarrier(job.source, channel.frequency, job.stopped);
    if (carrier.known && carrier.locked)
      hooks_.take(job.source, channel.frequency, carrier, outcome);
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

  // Under the lock, so that a stopped scan changes nothing after stop() has returned.
  std::lock_guard<std::mutex> lock(mutex_);
  const bool running = running_.get() == &job;
  if (running && carrier.known) {
    const ServiceList::Change change =
        list_.replace(job.source, channel.frequency, std::move(carrier.services));
    outcome.services = change.any();
    for (const uint16_t id : change.sourceIds)
      outcome.listed.emplace(job.source, channel.frequency, id);
  }
  if (!running) {
    hooks_.ended(outcome);  // the guide is there already
    return false;
  }
  job.outcome.services |= outcome.services;
  job.outcome.guide |= outcome.guide;
  job.outcome.guidePartial |= outcome.guidePartial;
  job.outcome.sourceIds.insert(outcome.sourceIds.begin(), outcome.sourceIds.end());
  job.outcome.listed.insert(outcome.listed.begin(), outcome.listed.end());
  return true;
}

// Returns false when the scan has been stopped. One callback at a time: that of a stopped scan is
// awaited. No lock is held during the callback, which may be waiting for whoever calls stop().
bool Scanner::report(Job& job, int state) {
  std::unique_lock<std::mutex> lock(mutex_);
  const auto stopped = [&] { return running_.get() != &job; };
  changed_.wait(lock, [&] {
    return stopped() || std::none_of(jobs_.begin(), jobs_.end(),
                                     [](const auto& other) { return other->reporting; });
  });
  if (stopped()) return false;
  // Whoever learns of the end, through the callback, may start the next scan.
  if (state == AICS_STATE_OVER) running_.reset();
  job.reporting = true;
  AICS_scan_progress copy = job.progress;
  lock.unlock();
  const auto reported = [&] {
    lock.lock();
    job.reporting = false;
    changed_.notify_all();
  };
  try {
    job.callback(&copy, state);
    if (state == AICS_STATE_OVER) hooks_.ended(job.outcome);
  } catch (...) {
    reported();
    throw;
  }
  reported();
  return true;
}

}  // namespace atschost
