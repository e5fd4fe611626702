#include "receiver/stream/demux.h"

#include <utility>

namespace atschost {

Demux::Demux(Wanted wanted, Sink sink, PacketSink onPacket)
    : wanted_(std::move(wanted)),
      sink_(std::move(sink)),
      onPacket_(std::move(onPacket)),
      packetSink_([this](const uint8_t* packet) { pushPacket(packet); }) {}

void Demux::push(const uint8_t* bytes, size_t size) { sync_.push(bytes, size, packetSink_); }

void Demux::finish() {
  sync_.finish(packetSink_);
  assemblers_.clear();
}

std::string Demux::takeFaults() {
  std::string text;
  if (sync_.losses() && !lossesReported_) {
    text = "sync lost " + std::to_string(sync_.losses()) + " times";
    lossesReported_ = true;
  }
  for (auto& [fault, seen] : faults_) {
    if (seen.reported) continue;
    seen.reported = true;
    if (!text.empty()) text += "; ";
    text += std::string(fault) + " (" + std::to_string(seen.count) + " times, first on PID " +
            std::to_string(seen.firstPid) + ")";
  }
  return text;
}

void Demux::pushPacket(const uint8_t* packet) {
  ++packets_;
  if (onPacket_) onPacket_(packet);
  const uint16_t pid = packetPid(packet);
  if (!wanted_(pid)) return;
  note(pid, assemblers_[pid].push(packet, [&](const uint8_t* section, size_t size) {
    note(pid, sink_(parseSection(pid, section, size)));
  }));
}

void Demux::note(uint16_t pid, const char* fault) {
  if (!fault) return;
  Seen& seen = faults_[fault];
  if (seen.count++ == 0) seen.firstPid = pid;
}

}  // namespace atschost
