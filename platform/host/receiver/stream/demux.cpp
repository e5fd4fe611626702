#include "receiver/stream/demux.h"

#include <utility>

namespace atschost {

Demux::Demux(Wanted wanted, Sink sink, PacketSink on_packet)
    : wanted_(std::move(wanted)),
      sink_(std::move(sink)),
      on_packet_(std::move(on_packet)),
      packet_sink_([this](const uint8_t* packet) { push_packet(packet); }) {}

void Demux::push(const uint8_t* bytes, size_t size) { sync_.push(bytes, size, packet_sink_); }

void Demux::finish() {
  sync_.finish(packet_sink_);
  assemblers_.clear();
}

std::string Demux::take_faults() {
  std::string text;
  if (sync_.losses() && !losses_told_) {
    text = "sync lost " + std::to_string(sync_.losses()) + " times";
    losses_told_ = true;
  }
  for (auto& [fault, seen] : faults_) {
    if (seen.told) continue;
    seen.told = true;
    if (!text.empty()) text += "; ";
    text += std::string(fault) + " (" + std::to_string(seen.count) + " times, first on PID " +
            std::to_string(seen.first_pid) + ")";
  }
  return text;
}

void Demux::push_packet(const uint8_t* packet) {
  ++packets_;
  if (on_packet_) on_packet_(packet);
  const uint16_t pid = packet_pid(packet);
  if (!wanted_(pid)) return;
  note(pid, assemblers_[pid].push(packet, [&](const uint8_t* section, size_t size) {
    note(pid, sink_(pid, section, size));
  }));
}

void Demux::note(uint16_t pid, const char* fault) {
  if (!fault) return;
  Seen& seen = faults_[fault];
  if (seen.count++ == 0) seen.first_pid = pid;
}

}  // namespace atschost
