#include "receiver/tables/guide_pid.h"

#include <algorithm>

namespace atschost {
namespace {

bool sameVersions(const std::vector<Announced>& a, const std::vector<Announced>& b) {
  return std::equal(
      a.begin(), a.end(), b.begin(), b.end(),
      [](const Announced& left, const Announced& right) { return left.version == right.version; });
}

}  // namespace

bool GuidePid::follow(const std::vector<Announced>& instances) {
  if (instances_ == instances) return false;
  if (!sameVersions(instances_, instances)) {
    ++round_;
    carousel_.restart();
  }
  instances_ = instances;
  return true;
}

void GuidePid::endPass() {
  if (carousel_.endPass()) sweep();
}

void GuidePid::note(uint32_t key, bool isNew) {
  if (carousel_.note(key, isNew)) sweep();
}

}  // namespace atschost
