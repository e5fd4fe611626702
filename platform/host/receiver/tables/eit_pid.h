// Event information tables (A/65 6.5) on one PID.
#ifndef ATSC_HOST_RECEIVER_TABLES_EIT_PID_H_
#define ATSC_HOST_RECEIVER_TABLES_EIT_PID_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "receiver/tables/guide_pid.h"

namespace atschost {

// A PID carries one instance. If a PID carries several, the n-th table of a source that differs
// counts as the table of the n-th instance.
class EitPid : public GuidePid {
 public:
  using GuidePid::GuidePid;
  ~EitPid() override;

  bool follow(const std::vector<Announced>& instances) override;
  const char* push(const Section& section) override;
  void addTo(GuideTables& guide) const override;

 private:
  // A version of which sections are missing.
  struct Pending {
    struct Part {
      uint32_t crc;
      GuideTables::Eit events;
    };
    bool isOf(const Section& section) const {
      return version == section.version && lastNumber == section.lastNumber;
    }

    uint8_t version;
    uint8_t lastNumber;
    std::map<uint8_t, Part> parts;  // by section_number
  };
  struct Table {
    unsigned round = 0;  // in which `events` came; 0: never
    uint8_t version = 0;
    std::vector<uint32_t> crcs;  // of the sections
    std::shared_ptr<const GuideTables::Eit> events = std::make_shared<GuideTables::Eit>();
    std::optional<Pending> pending;
  };
  using Tables = std::map<std::pair<uint8_t, uint16_t>, Table>;  // by index and source id

  static size_t sizeOf(const Pending& pending);
  static size_t sizeOf(const Table& table);

  std::vector<uint8_t> candidates(const Section& section) const;
  std::optional<uint32_t> receivedCrc(const Table& table, const Section& section) const;
  const char* takePart(Table& table, const Section& section, GuideTables::Eit events);
  void commit(Table& table);
  Tables::iterator erase(Tables::iterator table);
  void sweep() override;
  bool hasPending() const override { return pendings_ > 0; }

  Tables tables_;
  size_t pendings_ = 0;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_EIT_PID_H_
