#include "receiver/tables/guide_decoder.h"

#include <algorithm>

#include "receiver/tables/eit_pid.h"
#include "receiver/tables/ett_pid.h"
#include "receiver/tables/mgt.h"
#include "receiver/tables/table_ids.h"

namespace atschost {

bool GuideDecoder::isAnnounced(const Section& section) const {
  return pids_.count({section.tableId, section.pid}) != 0;
}

const char* GuideDecoder::push(const Section& section) {
  if (section.tableId == kMgtId) return pushMgt(section);
  return pids_.at({section.tableId, section.pid})->push(section);
}

const char* GuideDecoder::pushMgt(const Section& section) {
  if (mgtCrc_ == section.crc) return nullptr;
  Mgt mgt;
  if (const char* fault = readMgt(section, mgt)) return fault;
  const bool isFirst = !mgtCrc_;
  mgtCrc_ = section.crc;
  const bool eitsChanged = follow<EitPid>(kEitId, mgt.eits);
  const bool ettsChanged = follow<EttPid>(kEttId, mgt.etts);
  if (isFirst || eitsChanged || ettsChanged) storage_.noteChange();
  wanted_.reset();
  for (const auto& [key, pid] : pids_) wanted_.set(key.second);
  return nullptr;
}

// Takes over what the MGT says of one kind of table. Returns whether PIDs or instances changed.
template <typename Pid>
bool GuideDecoder::follow(uint8_t tableId, const GuidePlan& plan) {
  bool changed = false;
  for (auto it = pids_.begin(); it != pids_.end();) {
    const auto [id, number] = it->first;
    if (id != tableId || plan.count(number)) {
      ++it;
      continue;
    }
    it = pids_.erase(it);
    changed = true;
  }
  for (const auto& [number, instances] : plan) {
    auto& pid = pids_[{tableId, number}];
    if (!pid) pid = std::make_unique<Pid>(storage_);
    changed |= pid->follow(instances);
  }
  return changed;
}

void GuideDecoder::endPass() {
  for (auto& [key, pid] : pids_) pid->endPass();
}

void GuideDecoder::giveUpSilent() {
  for (auto& [key, pid] : pids_) pid->giveUpSilent();
}

bool GuideDecoder::takeChange() {
  const uint64_t changes = storage_.changes();
  return std::exchange(taken_, changes) != changes;
}

const GuideTables& GuideDecoder::tables() {
  const uint64_t changes = storage_.changes();
  if (std::exchange(built_, changes) != changes) build();
  return tables_;
}

void GuideDecoder::build() {
  tables_ = {};
  tables_.mgtSeen = mgtCrc_.has_value();
  for (const auto& [key, pid] : pids_) {
    const bool isEit = key.first == kEitId;
    auto& announced = isEit ? tables_.announcedEits : tables_.announcedEtts;
    auto& settled = isEit ? tables_.settledEits : tables_.settledEtts;
    for (const Announced& each : pid->instances()) {
      announced.push_back(each.instance);
      if (pid->isSettled()) settled.push_back(each.instance);
    }
    pid->addTo(tables_);
  }
  for (auto* list :
       {&tables_.announcedEits, &tables_.announcedEtts, &tables_.settledEits, &tables_.settledEtts})
    std::sort(list->begin(), list->end());
}

bool GuideDecoder::isComplete() const {
  return mgtCrc_ && std::all_of(pids_.begin(), pids_.end(),
                                [](const auto& entry) { return entry.second->isComplete(); });
}

bool GuideDecoder::isSettled() const {
  return mgtCrc_ && std::all_of(pids_.begin(), pids_.end(),
                                [](const auto& entry) { return entry.second->isSettled(); });
}

}  // namespace atschost
