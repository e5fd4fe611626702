#include "television/service_link.h"

#include "common/json.h"

namespace web {

Sent ServiceLink::send(const std::string& command, std::chrono::milliseconds patience) {
  using Clock = std::chrono::steady_clock;
  const std::unique_lock<std::timed_mutex> lock(way_, patience);
  if (!lock) return {LinkFault::kBusy};
  if (apps::servicePid() <= 0) return {LinkFault::kNoService};
  const Clock::time_point start = Clock::now();
  std::optional<apps::Reply> reply = apps::transmit(command);
  if (!reply) return {LinkFault::kNoService};
  const std::chrono::duration<double, std::milli> took = Clock::now() - start;
  return {LinkFault::kNone, reply->result, std::move(reply->text), took.count()};
}

Sent ServiceLink::send(const Json::Value& command, std::chrono::milliseconds patience) {
  return send(apps::compactJson(command), patience);
}

}  // namespace web
