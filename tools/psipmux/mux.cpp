#include "mux.h"

#include <algorithm>
#include <map>
#include <string>

namespace psipmux {
namespace {

constexpr uint16_t kNullPid = 0x1FFF;
constexpr uint8_t kStuffing = 0xFF;
constexpr size_t kPacketPayload = kPacketSize - 4;

constexpr unsigned kPatRepetitions = 3;
constexpr unsigned kMgtRepetitions = 2;

// A section starts a packet of its own, after a pointer_field of one byte.
unsigned PacketCount(const Bytes& section) {
  return static_cast<unsigned>((1 + section.size() + kPacketPayload - 1) / kPacketPayload);
}

/// Writes packets to a stream and keeps the continuity counters of its PIDs.
class Packetizer {
 public:
  void WriteSection(uint16_t pid, const Bytes& section) {
    const size_t end = out_.size() + PacketCount(section) * kPacketSize;
    StartPacket(pid, true, continuity_[pid]++);
    out_.push_back(0);  // pointer_field
    for (const uint8_t byte : section) {
      if (out_.size() % kPacketSize == 0) StartPacket(pid, false, continuity_[pid]++);
      out_.push_back(byte);
    }
    out_.resize(end, kStuffing);
  }

  void WriteNull() {
    StartPacket(kNullPid, false, 0);
    out_.resize(out_.size() + kPacketPayload, kStuffing);
  }

  Bytes Take() { return std::move(out_); }

 private:
  void StartPacket(uint16_t pid, bool unit_start, unsigned continuity) {
    constexpr uint8_t kSyncByte = 0x47;
    constexpr uint8_t kPayloadOnly = 0x10;
    out_.push_back(kSyncByte);
    out_.push_back(static_cast<uint8_t>((unit_start ? 0x40 : 0) | pid >> 8));
    out_.push_back(static_cast<uint8_t>(pid & 0xFF));
    out_.push_back(static_cast<uint8_t>(kPayloadOnly | (continuity & 0x0F)));
  }

  Bytes out_;
  std::map<uint16_t, unsigned> continuity_;
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

void WriteCycle(const std::vector<Carousel>& tables, Packetizer& out) {
  const std::vector<Unit> units = Schedule(tables);
  unsigned left = 0;
  for (const Unit& unit : units) left += PacketCount(*unit.section);
  if (left > kPacketsPerCycle) {
    throw MuxError("its tables take " + std::to_string(left * kCyclesPerSecond) +
                   " packets a second, the stream has " + std::to_string(kPacketsPerSecond));
  }
  unsigned position = 0;
  const auto idle_until = [&](unsigned end) {
    for (; position < end; ++position) out.WriteNull();
  };
  for (const Unit& unit : units) {
    idle_until(std::min(unit.target, kPacketsPerCycle - left));
    out.WriteSection(unit.pid, *unit.section);
    position += PacketCount(*unit.section);
    left -= PacketCount(*unit.section);
  }
  idle_until(kPacketsPerCycle);
}

}  // namespace

std::vector<Carousel> ChannelTables(const Lineup& lineup, const Channel& channel,
                                    uint32_t system_time) {
  std::vector<Carousel> tables;
  tables.push_back({kPatPid, kPatRepetitions, {BuildPat(channel)}});
  for (const Service& service : channel.services) {
    tables.push_back({service.pmt_pid, 1, {BuildPmt(service)}});
  }
  if (channel.psip) {
    std::vector<Bytes> vct = BuildVct(lineup.medium, channel);
    const std::vector<MgtEntry> announced = {VctMgtEntry(lineup.medium, channel, vct)};
    tables.push_back({kPsipPid, kMgtRepetitions, {BuildMgt(channel.version, announced)}});
    tables.push_back({kPsipPid, 1, std::move(vct)});
    tables.push_back({kPsipPid, 1, {BuildStt(system_time, lineup.daylight_saving)}});
  }
  return tables;
}

Bytes Multiplex(const Lineup& lineup, const Channel& channel, uint32_t system_time) {
  Packetizer out;
  for (unsigned cycle = 0; cycle < kCycles; ++cycle) {
    WriteCycle(ChannelTables(lineup, channel, system_time + cycle / kCyclesPerSecond), out);
  }
  return out.Take();
}

}  // namespace psipmux
