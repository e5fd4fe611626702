#include "television/service_link.h"

#include <memory>
#include <utility>

#include "common/json.h"

namespace web {
namespace {

constexpr std::chrono::seconds kVeryLong(2);

}  // namespace

bool ServiceLink::enter(std::chrono::milliseconds patience) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (since_ && Clock::now() - *since_ > kVeryLong) return false;
  if (!left_.wait_for(lock, patience, [this] { return !since_; })) return false;
  since_ = Clock::now();
  return true;
}

void ServiceLink::leave() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    since_.reset();
  }
  left_.notify_one();
}

Sent ServiceLink::send(const std::string& command, std::chrono::milliseconds patience) {
  if (!enter(patience)) return {LinkFault::kBusy};
  const auto leaves = [this](void*) { leave(); };
  const std::unique_ptr<ServiceLink, decltype(leaves)> entered(this, leaves);
  // To look for a service wakes it up.
  if (!running_ && apps::servicePid() <= 0) return {LinkFault::kNoService};
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
