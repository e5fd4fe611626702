#include "mux.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "calendar.h"
#include "guide.h"
#include "packets.h"

namespace psipmux {
namespace {

constexpr unsigned kPatRepetitions = 3;
constexpr unsigned kMgtRepetitions = 2;

/// A table that is sent `repetitions` times per cycle.
struct Carousel {
  uint16_t pid = 0;
  unsigned repetitions = 1;
  std::vector<Bytes> sections;
};

/// A section and the packet of the cycle in which it should start.
struct Unit {
  unsigned target = 0;
  uint16_t pid = 0;
  const Bytes* section = nullptr;
};

// Distributes each table evenly over the cycle, with an offset between tables, so that tables do
// not delay each other. The sections of a table may be sent in any order.
std::vector<Unit> schedule(const std::vector<Carousel>& tables) {
  std::vector<Unit> units;
  for (size_t t = 0; t < tables.size(); ++t) {
    const Carousel& table = tables[t];
    const size_t count = table.sections.size();
    for (unsigned r = 0; r < table.repetitions; ++r) {
      for (size_t s = 0; s < count; ++s) {
        const size_t phase = (kPacketsPerCycle * t / tables.size() + kPacketsPerCycle * s / count) %
                             kPacketsPerCycle;
        const size_t target = (r * kPacketsPerCycle + phase) / table.repetitions;
        units.push_back({static_cast<unsigned>(target), table.pid, &table.sections[s]});
      }
    }
  }
  std::stable_sort(units.begin(), units.end(),
                   [](const Unit& a, const Unit& b) { return a.target < b.target; });
  return units;
}

/// Returns the packets of a cycle, filled up with null packets. Throws MuxError.
std::vector<Packet> makeCycle(const std::vector<Carousel>& tables) {
  const std::vector<Unit> units = schedule(tables);
  unsigned left = 0;
  for (const Unit& unit : units) left += packetCount(*unit.section);
  if (left > kPacketsPerCycle) {
    throw MuxError("its tables take " + std::to_string(left * kCyclesPerSecond) +
                   " packets a second, the stream has " + std::to_string(kPacketsPerSecond));
  }
  std::vector<Packet> packets;
  for (const Unit& unit : units) {
    const size_t start = std::min(unit.target, kPacketsPerCycle - left);
    if (packets.size() < start) packets.resize(start);
    packetize(unit.pid, *unit.section, packets);
    left -= packetCount(*unit.section);
  }
  packets.resize(kPacketsPerCycle);
  return packets;
}

/// Returns the tables of a cycle. In a channel with PSIP, the last table is the STT, without
/// sections.
std::vector<Carousel> cycleTables(const Lineup& lineup, const Channel& channel,
                                  const std::vector<GuideTable>& guide, uint32_t systemTime) {
  std::vector<Carousel> tables;
  tables.push_back({kPatPid, kPatRepetitions, {buildPat(channel)}});
  for (const Service& service : channel.services) {
    uint32_t version = service.version;
    std::vector<Rating> ratings;
    if (service.ratingInPmt) {
      const OnAir onAir = findOnAir(service, systemTime);
      version += onAir.number;
      if (onAir.programme != nullptr) ratings = onAir.programme->ratings;
    }
    tables.push_back(
        {service.pmtPid, 1, {buildPmt(service, static_cast<uint8_t>(version % 32), ratings)}});
  }
  if (!channel.psip) return tables;
  std::vector<Bytes> vct = buildVct(lineup.medium, channel);
  std::vector<MgtEntry> announced = {vctMgtEntry(lineup.medium, channel, vct)};
  tables.push_back({kPsipPid, 1, std::move(vct)});
  for (const GuideTable& table : guide) {
    announced.push_back({table.tableType, table.pid, channel.guideVersion,
                         static_cast<uint32_t>(totalSize(table.sections))});
  }
  for (const RatingRegion& region : lineup.ratingRegions) {
    Bytes rrt = buildRrt(region);
    announced.push_back(rrtMgtEntry(region, rrt));
    tables.push_back({kPsipPid, 1, {std::move(rrt)}});
  }
  for (const Alert& alert : channel.alerts) tables.push_back({kPsipPid, 1, {buildAlert(alert)}});
  tables.push_back({kPsipPid, kMgtRepetitions, {buildMgt(channel.guideVersion, announced)}});
  tables.push_back({kPsipPid, 1, {}});
  return tables;
}

/// Determines the length of a stream and distributes the sections of the guide over it.
class GuideSchedule {
 public:
  /// `room` is the number of packets available in a period. Throws MuxError if the guide is too
  /// large.
  GuideSchedule(const std::vector<GuideTable>& guide, unsigned room) : guide_(guide) {
    for (const GuideTable& table : guide) {
      unsigned& count = counts_[table.pid];
      for (const Bytes& section : table.sections) count += packetCount(section);
    }
    if (guide.empty()) return;
    for (periods_ = 1; periods_ <= kMaxPeriods; ++periods_) {
      const unsigned fewest = periods_ == kMaxPeriods ? 1 : 2;
      for (passes_ = periods_ * kPeriodSeconds; passes_ >= fewest; --passes_) {
        if (size() <= periods_ * room) return;
      }
    }
    periods_ = kMaxPeriods;
    passes_ = 1;
    throw MuxError("its guide takes " + std::to_string(size()) +
                   " packets, the longest stream has room for " +
                   std::to_string(kMaxPeriods * room));
  }

  unsigned periods() const { return periods_; }

  /// Returns the packets of the guide in the order of transmission.
  std::vector<Packet> packets() const {
    struct Unit {
      double time;  // 0 to 1
      uint16_t pid;
      const Bytes* section;  // null: a packet of stuffing bytes
    };
    std::vector<Unit> units;
    const auto spread = [&](uint16_t pid, const Bytes* section, unsigned count, double phase) {
      for (unsigned i = 0; i < count; ++i) units.push_back({(i + phase) / count, pid, section});
    };
    size_t sections = 0;
    for (const GuideTable& table : guide_) sections += table.sections.size();
    size_t position = 0;
    for (const GuideTable& table : guide_) {
      for (const Bytes& section : table.sections) {
        const double phase = static_cast<double>(position++) / static_cast<double>(sections);
        spread(table.pid, &section, repetitions(table.pid), phase);
      }
      const double phase = static_cast<double>(position) / static_cast<double>(sections + 1);
      spread(table.pid, nullptr, padding(table.pid, counts_.at(table.pid)), phase);
    }
    std::stable_sort(units.begin(), units.end(),
                     [](const Unit& a, const Unit& b) { return a.time < b.time; });
    std::vector<Packet> packets;
    for (const Unit& unit : units) {
      if (unit.section != nullptr) {
        packetize(unit.pid, *unit.section, packets);
      } else {
        packets.push_back({unit.pid, false, {}});
      }
    }
    return packets;
  }

 private:
  unsigned repetitions(uint16_t pid) const {
    return pid == kEitPid ? periods_ * kPeriodSeconds * kEit0PerSecond : passes_;
  }
  // Returns the number of packets missing to a multiple of 16.
  unsigned padding(uint16_t pid, unsigned count) const {
    return (16 - count * repetitions(pid) % 16) % 16;
  }
  unsigned size() const {
    unsigned size = 0;
    for (const auto& [pid, count] : counts_) {
      size += count * repetitions(pid) + padding(pid, count);
    }
    return size;
  }

  const std::vector<GuideTable>& guide_;
  std::map<uint16_t, unsigned> counts_;  // packets of each table by PID
  unsigned periods_ = 1;                 // of the stream
  unsigned passes_ = 0;                  // of the guide except EIT-0
};

}  // namespace

Bytes multiplex(const Lineup& lineup, const Channel& channel, uint32_t systemTime) {
  std::vector<GuideTable> guide;
  if (channel.psip) guide = buildGuide(lineup, channel, systemTime);
  std::vector<Carousel> tables = cycleTables(lineup, channel, guide, systemTime);
  const DaylightSaving saving = lineup.daylightSaving.value_or(usDaylightSaving(systemTime));
  const auto nextCycle = [&](unsigned number) {
    if (channel.psip) {
      tables.back().sections = {buildStt(systemTime + number / kCyclesPerSecond, saving)};
    }
    return makeCycle(tables);
  };
  const auto isNull = [](const Packet& packet) { return packet.pid == kNullPid; };
  const std::vector<Packet> first = nextCycle(0);
  const auto room = static_cast<unsigned>(std::count_if(first.begin(), first.end(), isNull));
  const GuideSchedule schedule(guide, room * kCyclesPerPeriod);
  const std::vector<Packet> guidePackets = schedule.packets();
  const unsigned cycles = schedule.periods() * kCyclesPerPeriod;

  // Replace null packets by those of the guide, evenly distributed.
  PacketWriter out;
  uint64_t idle = 0;
  size_t sent = 0;
  for (unsigned number = 0; number < cycles; ++number) {
    for (const Packet& packet : nextCycle(number)) {
      if (isNull(packet) && ++idle * guidePackets.size() / (uint64_t{room} * cycles) > sent) {
        out.write(guidePackets[sent++]);
      } else {
        out.write(packet);
      }
    }
  }
  return out.take();
}

}  // namespace psipmux
