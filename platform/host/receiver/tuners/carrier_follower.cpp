#include "receiver/tuners/carrier_follower.h"

#include "receiver/stream/transport.h"
#include "receiver/tables/section_fault.h"
#include "receiver/tables/table_ids.h"
#include "receiver/tuners/carrier.h"
#include "receiver/tuners/decoder_log.h"

namespace atschost {
namespace {

constexpr size_t kMaxSections = 4096;  // remembered

}  // namespace

CarrierFollower::CarrierFollower(uint32_t source)
    : source_(source), decoder_(std::make_unique<PsiDecoder>(source, logDecoderMessage)) {}

const char* CarrierFollower::push(const Section& section, StreamPosition position) {
  if (!wants(section.pid) || !isOurs(section)) return nullptr;
  if (!section.current) return decoder_->push(section);
  const SectionKey key(section.pid, section.tableId, section.extension, section.number);
  const auto known = sections_.find(key);
  const bool isKnown = known != sections_.end();
  if (!isKnown || known->second != section.crc) {
    if (const char* fault = sectionFault(section)) return fault;
    if (sections_.size() >= kMaxSections) sections_.clear();
    sections_[key] = section.crc;
    if (isKnown || used_ != kNothing) restart(position);
  }
  const char* const fault = decoder_->push(section);
  hadPat_ |= decoder_->tables().pat.has_value();
  return fault;
}

bool CarrierFollower::isOurs(const Section& section) const {
  switch (section.pid) {
    case kPatPid:
      return section.tableId == kPatId;
    case kPsipBasePid:
      return section.tableId == vctIdOf(source_);
    default:
      return section.tableId == kPmtId;
  }
}

void CarrierFollower::restart(StreamPosition position) {
  decoder_ = std::make_unique<PsiDecoder>(source_, logDecoderMessage);
  ++generation_;
  start_ = position;
  used_ = kNothing;
}

CarrierFollower::Level CarrierFollower::level(StreamPosition position) const {
  if (decoder_->complete()) return kComplete;
  const bool seenWhole =
      position.passes - start_.passes >= 2 || position.bytes - start_.bytes >= kReadLimit;
  return seenWhole ? kSettled : kNothing;
}

}  // namespace atschost
