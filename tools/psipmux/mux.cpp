#include "mux.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "calendar.h"
#include "guide.h"

namespace psipmux {
namespace {

constexpr uint16_t kNullPid = 0x1FFF;
constexpr uint8_t kStuffing = 0xFF;
constexpr size_t kPacketPayload = kPacketSize - 4;

constexpr unsigned kPatRepetitions = 3;
constexpr unsigned kMgtRepetitions = 2;

struct Packet {
  uint16_t pid = kNullPid;
  bool unit_start = false;
  Bytes payload;  // stuffing follows
};

// A section starts a packet of its own, after a pointer_field of one byte.
unsigned PacketCount(const Bytes& section) {
  return static_cast<unsigned>((1 + section.size() + kPacketPayload - 1) / kPacketPayload);
}

void Packetize(uint16_t pid, const Bytes& section, std::vector<Packet>& out) {
  Packet packet{pid, true, {0}};  // pointer_field
  for (const uint8_t byte : section) {
    if (packet.payload.size() == kPacketPayload) {
      out.push_back(std::move(packet));
      packet = {pid, false, {}};
    }
    packet.payload.push_back(byte);
  }
  out.push_back(std::move(packet));
}

/// Writes packets to a stream and keeps the continuity counters of its PIDs.
class PacketWriter {
 public:
  void Write(const Packet& packet) {
    constexpr uint8_t kSyncByte = 0x47;
    constexpr uint8_t kPayloadOnly = 0x10;
    out_.push_back(kSyncByte);
    out_.push_back(static_cast<uint8_t>((packet.unit_start ? 0x40 : 0) | packet.pid >> 8));
    out_.push_back(static_cast<uint8_t>(packet.pid & 0xFF));
    const unsigned continuity = packet.pid == kNullPid ? 0 : continuity_[packet.pid]++;
    out_.push_back(static_cast<uint8_t>(kPayloadOnly | (continuity & 0x0F)));
    Append(out_, packet.payload);
    out_.resize(out_.size() + kPacketPayload - packet.payload.size(), kStuffing);
  }

  Bytes Take() { return std::move(out_); }

 private:
  Bytes out_;
  std::map<uint16_t, unsigned> continuity_;
};

/// A table, and how often it is sent in a cycle.
struct Carousel {
  uint16_t pid = 0;
  unsigned repetitions = 1;
  std::vector<Bytes> sections;
};

/// A section to send and the packet of the cycle it should start at.
struct Unit {
  unsigned target = 0;
  uint16_t pid = 0;
  const Bytes* section = nullptr;
};

// Spreads every table evenly over its period, and the tables against each other, so that no
// table keeps another waiting. The sections of a table may come in any order.
std::vector<Unit> Schedule(const std::vector<Carousel>& tables) {
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

/// The packets of a cycle; null packets where there is nothing to send.
std::vector<Packet> Cycle(const std::vector<Carousel>& tables) {
  const std::vector<Unit> units = Schedule(tables);
  unsigned left = 0;
  for (const Unit& unit : units) left += PacketCount(*unit.section);
  if (left > kPacketsPerCycle) {
    throw MuxError("its tables take " + std::to_string(left * kCyclesPerSecond) +
                   " packets a second, the stream has " + std::to_string(kPacketsPerSecond));
  }
  std::vector<Packet> packets;
  for (const Unit& unit : units) {
    const size_t start = std::min(unit.target, kPacketsPerCycle - left);
    if (packets.size() < start) packets.resize(start);
    Packetize(unit.pid, *unit.section, packets);
    left -= PacketCount(*unit.section);
  }
  packets.resize(kPacketsPerCycle);
  return packets;
}

/// The tables of every cycle. The last one is the STT when the channel has PSIP.
std::vector<Carousel> CycleTables(const Lineup& lineup, const Channel& channel,
                                  const std::vector<GuideTable>& guide, uint32_t system_time) {
  std::vector<Carousel> tables;
  tables.push_back({kPatPid, kPatRepetitions, {BuildPat(channel)}});
  for (const Service& service : channel.services) {
    uint32_t version = service.version;
    std::vector<Rating> ratings;
    if (service.rating_in_pmt) {
      const OnAir on_air = FindOnAir(service, system_time);
      version += on_air.number;
      if (on_air.programme != nullptr) ratings = on_air.programme->ratings;
    }
    tables.push_back(
        {service.pmt_pid, 1, {BuildPmt(service, static_cast<uint8_t>(version % 32), ratings)}});
  }
  if (!channel.psip) return tables;
  std::vector<Bytes> vct = BuildVct(lineup.medium, channel);
  std::vector<MgtEntry> announced = {VctMgtEntry(lineup.medium, channel, vct)};
  tables.push_back({kPsipPid, 1, std::move(vct)});
  for (const GuideTable& table : guide) {
    announced.push_back({table.table_type, table.pid, channel.guide_version,
                         static_cast<uint32_t>(TotalSize(table.sections))});
  }
  for (const RatingRegion& region : lineup.rating_regions) {
    Bytes rrt = BuildRrt(region);
    announced.push_back(RrtMgtEntry(region, rrt));
    tables.push_back({kPsipPid, 1, {std::move(rrt)}});
  }
  for (const Alert& alert : channel.alerts) tables.push_back({kPsipPid, 1, {BuildAlert(alert)}});
  tables.push_back({kPsipPid, kMgtRepetitions, {BuildMgt(channel.guide_version, announced)}});
  tables.push_back({kPsipPid, 1, {}});
  return tables;
}

/// When the sections of the guide are sent, and how long the stream has to be for them.
class GuideSchedule {
 public:
  /// `room`: the packets left to the guide in a period.
  GuideSchedule(const std::vector<GuideTable>& guide, unsigned room) : guide_(guide) {
    for (const GuideTable& table : guide) {
      unsigned& count = counts_[table.pid];
      for (const Bytes& section : table.sections) count += PacketCount(section);
    }
    if (guide.empty()) return;
    for (periods_ = 1; periods_ <= kMaxPeriods; ++periods_) {
      const unsigned fewest = periods_ == kMaxPeriods ? 1 : 2;
      for (passes_ = periods_ * kPeriodSeconds; passes_ >= fewest; --passes_) {
        if (Size() <= periods_ * room) return;
      }
    }
    periods_ = kMaxPeriods;
    passes_ = 1;
    throw MuxError("its guide takes " + std::to_string(Size()) +
                   " packets, the longest stream has room for " +
                   std::to_string(kMaxPeriods * room));
  }

  unsigned Periods() const { return periods_; }

  /// What is sent in the stream, in this order.
  std::vector<Packet> Packets() const {
    struct Unit {
      double time;  // 0 to 1
      uint16_t pid;
      const Bytes* section;  // null: a packet of nothing but stuffing
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
        spread(table.pid, &section, Repetitions(table.pid), phase);
      }
      const double phase = static_cast<double>(position) / static_cast<double>(sections + 1);
      spread(table.pid, nullptr, Padding(table.pid, counts_.at(table.pid)), phase);
    }
    std::stable_sort(units.begin(), units.end(),
                     [](const Unit& a, const Unit& b) { return a.time < b.time; });
    std::vector<Packet> packets;
    for (const Unit& unit : units) {
      if (unit.section != nullptr) {
        Packetize(unit.pid, *unit.section, packets);
      } else {
        packets.push_back({unit.pid, false, {}});
      }
    }
    return packets;
  }

 private:
  unsigned Repetitions(uint16_t pid) const {
    return pid == kEitPid ? periods_ * kPeriodSeconds * kEit0PerSecond : passes_;
  }
  // What the continuity counters lack.
  unsigned Padding(uint16_t pid, unsigned count) const {
    return (16 - count * Repetitions(pid) % 16) % 16;
  }
  unsigned Size() const {
    unsigned size = 0;
    for (const auto& [pid, count] : counts_) {
      size += count * Repetitions(pid) + Padding(pid, count);
    }
    return size;
  }

  const std::vector<GuideTable>& guide_;
  std::map<uint16_t, unsigned> counts_;  // packets of each table by PID
  unsigned periods_ = 1;                 // of the stream
  unsigned passes_ = 0;                  // of the guide, EIT-0 apart
};

}  // namespace

Bytes Multiplex(const Lineup& lineup, const Channel& channel, uint32_t system_time) {
  std::vector<GuideTable> guide;
  if (channel.psip) guide = BuildGuide(lineup, channel, system_time);
  std::vector<Carousel> tables = CycleTables(lineup, channel, guide, system_time);
  const DaylightSaving saving = lineup.daylight_saving.value_or(UsDaylightSaving(system_time));
  const auto cycle = [&](unsigned number) {
    if (channel.psip) {
      tables.back().sections = {BuildStt(system_time + number / kCyclesPerSecond, saving)};
    }
    return Cycle(tables);
  };
  const auto is_null = [](const Packet& packet) { return packet.pid == kNullPid; };
  const std::vector<Packet> first = cycle(0);
  const auto room = static_cast<unsigned>(std::count_if(first.begin(), first.end(), is_null));
  const GuideSchedule schedule(guide, room * kCyclesPerPeriod);
  const std::vector<Packet> guide_packets = schedule.Packets();
  const unsigned cycles = schedule.Periods() * kCyclesPerPeriod;

  // The packets of the guide take the place of null packets, evenly.
  PacketWriter out;
  uint64_t idle = 0;
  size_t sent = 0;
  for (unsigned number = 0; number < cycles; ++number) {
    for (const Packet& packet : cycle(number)) {
      if (is_null(packet) && ++idle * guide_packets.size() / (uint64_t{room} * cycles) > sent) {
        out.Write(guide_packets[sent++]);
      } else {
        out.Write(packet);
      }
    }
  }
  return out.Take();
}

}  // namespace psipmux
