// AICS: channel scan, on a worker of its own.
#include <chrono>

#include "aics.h"
#include "mutex.h"
#include "process.h"
#include "set.h"

namespace {

using minimal::Carrier;
using minimal::kFailure;
using minimal::kSuccess;
using minimal::Mutex;
using minimal::MutexLock;

constexpr std::chrono::milliseconds kDwell(50);

struct Search {
  AICS_scan_callback callback;
  std::vector<Carrier> plan;
  size_t at;
  AICS_scan_progress progress;
};

struct State {
  Mutex mutex;
  bool running GUARDED_BY(mutex) = false;
  uint32_t number GUARDED_BY(mutex) = 0;  // of the last search
};

State& state() { return minimal::immortal<State>(); }

void finish() {
  minimal::report(AFW_SERVICE_BUILD_COMPLETED);
  minimal::reportGuide();
}

// Visits the next frequency and reports progress, or reports the end of the search. Does nothing if
// the search was stopped.
void step(uint32_t number, Search search) EXCLUDES(state().mutex) {
  int reported = AICS_STATE_PROGRESS;
  {
    const MutexLock lock(state().mutex);
    if (!state().running || state().number != number) return;
    if (search.at == search.plan.size()) {
      reported = AICS_STATE_OVER;
      state().running = false;
    } else {
      const Carrier& carrier = search.plan[search.at++];
      const uint32_t found = minimal::listCarrier(carrier);
      AICS_scan_progress& progress = search.progress;
      progress.progress = static_cast<uint8_t>(100 * search.at / search.plan.size());
      progress.channel_number = carrier.channelNumber;
      progress.current_frequency = carrier.frequency;
      progress.carrier_type = found > 0 ? progress.band_mask : 0;
      if (found > 0) progress.lock_frequency = carrier.frequency;
      progress.services_found += found;
      progress.tv_services += found;
    }
  }
  search.callback(&search.progress, reported);
  if (reported == AICS_STATE_OVER) {
    finish();
    return;
  }
  minimal::workers().scans.post([number, search] { step(number, search); }, kDwell);
}

}  // namespace

int AICS_start_search(const AICS_search_request* request, AICS_scan_callback callback) {
  if (request == nullptr || callback == nullptr) return kFailure;
  Search search = {callback, {}, 0, {}};
  for (const Carrier& carrier : minimal::carriers()) {
    if (carrier.inputSource == request->source && (request->search_type == AICS_SEARCH_AUTOMATIC ||
                                                   carrier.frequency == request->frequency)) {
      search.plan.push_back(carrier);
    }
  }
  if (search.plan.empty()) return kFailure;
  search.progress.band_mask = static_cast<int32_t>(minimal::modulationOf(request->source));
  minimal::endPlaying();

  const MutexLock lock(state().mutex);
  if (state().running) return kFailure;
  const uint32_t number = ++state().number;
  state().running = minimal::workers().scans.post([number, search]() mutable {
    {
      const MutexLock lock(state().mutex);
      if (!state().running || state().number != number) return;
    }
    search.callback(&search.progress, AICS_STATE_START);
    step(number, search);
  });
  return state().running ? kSuccess : kFailure;
}

int AICS_stop_scan(void) {
  {
    const MutexLock lock(state().mutex);
    if (!state().running) return kFailure;
    state().running = false;
  }
  finish();
  return kSuccess;
}
