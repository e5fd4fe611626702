#include "receiver/tables/mgt.h"

#include <algorithm>
#include <bitset>

#include "receiver/stream/transport.h"

namespace atschost {
namespace {

constexpr uint16_t kLowestPid = 0x0010;

// table_type: the kind in the upper bits, the instance in the lower ones.
constexpr uint16_t kKindMask = 0xFF80;
constexpr uint16_t kEitKind = 0x0100;
constexpr uint16_t kEttKind = 0x0200;
constexpr uint16_t kInstanceMask = 0x007F;

void sortInstances(GuidePlan& plan) {
  for (auto& [pid, instances] : plan)
    std::sort(instances.begin(), instances.end(),
              [](const Announced& a, const Announced& b) { return a.instance < b.instance; });
}

}  // namespace

const char* readMgt(const Section& section, Mgt& mgt) {
  if (section.lastNumber != 0) return "MGT has several sections";
  ByteReader in = section.body();
  if (in.u8() != 0) return "MGT of an unknown protocol version";
  std::bitset<kInstanceMask + 1> knownEits, knownEtts;
  for (unsigned tables = in.u16(); tables > 0 && !in.passedEnd(); --tables) {
    const uint16_t type = in.u16();
    const uint16_t pid = in.u16() & 0x1FFF;
    const auto version = static_cast<uint8_t>(in.u8() & 0x1F);
    in.u32();                    // number_bytes
    in.part(in.u16() & 0x0FFF);  // descriptors
    const bool isEit = (type & kKindMask) == kEitKind;
    const bool isEtt = (type & kKindMask) == kEttKind;
    if (in.passedEnd() || !(isEit || isEtt)) continue;
    if (pid < kLowestPid || pid >= kPsipBasePid) continue;
    const auto instance = static_cast<uint8_t>(type & kInstanceMask);
    auto& known = isEit ? knownEits : knownEtts;
    if (!known[instance]) (isEit ? mgt.eits : mgt.etts)[pid].push_back({instance, version});
    known.set(instance);
  }
  in.part(in.u16() & 0x0FFF);  // descriptors
  if (in.passedEnd()) return "MGT passes the end";
  sortInstances(mgt.eits);
  sortInstances(mgt.etts);
  return nullptr;
}

}  // namespace atschost
