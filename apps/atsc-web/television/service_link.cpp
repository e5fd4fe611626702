#include "television/service_link.h"

#include "common/json.h"

namespace web {
namespace {

constexpr std::chrono::seconds kVeryLong(2);

}  // namespace

Sent ServiceLink::send(const std::string& command, std::chrono::milliseconds patience) {
  const Clock::duration since(since_);
  if (since.count() != 0 && Clock::now().time_since_epoch() - since > kVeryLong) {
    return {LinkFault::kBusy};
  }
  const std::unique_lock<std::timed_mutex> lock(way_, patience);
  if (!lock) return {LinkFault::kBusy};
  if (apps::servicePid() <= 0) return {LinkFault::kNoService};
  const Clock::time_point start = Clock::now();
  since_ = start.time_since_epoch().count();
  std::optional<apps::Reply> reply = apps::transmit(command);
  since_ = 0;
  if (!reply) return {LinkFault::kNoService};
  const std::chrono::duration<double, std::milli> took = Clock::now() - start;
  return {LinkFault::kNone, reply->result, std::move(reply->text), took.count()};
}

Sent ServiceLink::send(const Json::Value& command, std::chrono::milliseconds patience) {
  return send(apps::compactJson(command), patience);
}

}  // namespace web
