// Decodes the guide of one stream: MGT, EIT and ETT.
#ifndef ATSC_HOST_RECEIVER_TABLES_GUIDE_DECODER_H_
#define ATSC_HOST_RECEIVER_TABLES_GUIDE_DECODER_H_

#include <bitset>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "receiver/tables/guide_pid.h"
#include "receiver/tables/guide_tables.h"

namespace atschost {

// The part of PsipDecoder that follows the MGT. One thread.
class GuideDecoder {
 public:
  // Returns whether the MGT announces guide tables on a PID (13 bits).
  bool wants(uint16_t pid) const { return wanted_[pid]; }
  // Returns whether the section may be of a table that the MGT announces on its PID.
  bool isAnnounced(const Section& section) const;

  // Takes an MGT, or a section for which isAnnounced() is true, with a sound header. Returns null,
  // or the fault for which the section or a descriptor in it was dropped.
  const char* push(const Section& section);

  // As the functions of PsipDecoder.
  void endPass();
  void giveUpSilent();
  bool takeChange();
  const GuideTables& tables();
  bool isComplete() const;
  bool isSettled() const;

 private:
  using Pids = std::map<std::pair<uint8_t, uint16_t>, std::unique_ptr<GuidePid>>;

  const char* pushMgt(const Section& section);
  template <typename Pid>
  bool follow(uint8_t tableId, const GuidePlan& plan);
  void build();

  GuideStorage storage_;  // outlives the PIDs
  Pids pids_;             // by table_id and PID
  std::bitset<0x2000> wanted_;
  std::optional<uint32_t> mgtCrc_;
  GuideTables tables_;
  // storage_.changes() when tables_ was built, and when takeChange() was called.
  uint64_t built_ = 0;
  uint64_t taken_ = 0;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_GUIDE_DECODER_H_
