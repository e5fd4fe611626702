#include "receiver/carrier.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>

#include "receiver/air.h"
#include "receiver/frequency_plan.h"
#include "receiver/log.h"
#include "receiver/transport.h"

namespace atschost {
namespace {

constexpr size_t kReadLimit = 32 << 20;  // over 13 s of an 8-VSB carrier: every table many times
constexpr size_t kChunk = 512 * kPacketSize;

class CarrierReader {
 public:
  explicit CarrierReader(uint32_t source) : decoder_(source) {}

  // Returns the errno of a failed read, else 0.
  int read(int fd, const std::atomic<bool>& stop) {
    std::vector<uint8_t> chunk(kChunk);
    const auto sink = [this](const uint8_t* packet) { push_packet(packet); };
    for (size_t total = 0; total < kReadLimit && !decoder_.complete() && !stop;) {
      const ssize_t got = ::read(fd, chunk.data(), chunk.size());
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return errno;
      if (got == 0) {
        sync_.finish(sink);
        break;
      }
      sync_.push(chunk.data(), static_cast<size_t>(got), sink);
      total += static_cast<size_t>(got);
    }
    return 0;
  }

  const CarrierTables& tables() const { return decoder_.tables(); }

  uint64_t packets() const { return packets_; }

  // What was wrong with the stream; empty when nothing was.
  std::string faults() const {
    std::string text;
    if (sync_.losses()) text += "sync lost " + std::to_string(sync_.losses()) + " times";
    for (const auto& [fault, seen] : faults_) {
      if (!text.empty()) text += "; ";
      text += std::string(fault) + " (" + std::to_string(seen.count) + " times, first on PID " +
              std::to_string(seen.first_pid) + ")";
    }
    return text;
  }

 private:
  struct Seen {
    uint64_t count = 0;
    uint16_t first_pid = 0;
  };

  void push_packet(const uint8_t* packet) {
    ++packets_;
    const uint16_t pid = packet_pid(packet);
    if (!decoder_.wants(pid)) return;
    note(pid, assemblers_[pid].push(packet, [&](const uint8_t* section, size_t size) {
      note(pid, decoder_.push(pid, section, size));
    }));
  }

  void note(uint16_t pid, const char* fault) {
    if (!fault) return;
    Seen& seen = faults_[fault];
    if (seen.count++ == 0) seen.first_pid = pid;
  }

  PsiDecoder decoder_;
  PacketSync sync_;
  std::map<uint16_t, SectionAssembler> assemblers_;
  uint64_t packets_ = 0;
  std::map<std::string_view, Seen> faults_;  // faults are literals
};

}  // namespace

CarrierResult read_carrier(uint32_t source, uint32_t frequency, const std::atomic<bool>& stop) {
  CarrierResult result;
  const std::string path = carrier_path(source, frequency);
  if (path.empty()) return result;
  const File file = open_regular(path);
  if (!file) {
    if (errno != ENOENT && errno != ENOTDIR) log().Warn("%s: no lock: %m", path.c_str());
    return result;
  }
  result.locked = true;

  CarrierReader reader(source);
  const int error = reader.read(file.fd(), stop);
  if (stop) return result;
  if (error) {
    errno = error;
    log().Warn("%s: reading ended: %m", path.c_str());
  }
  result.services = build_services(reader.tables(), source, frequency);

  const CarrierTables& tables = reader.tables();
  log().Info("%s: %llu packets, VCT %s, PAT %s, %zu PMTs: %zu services", path.c_str(),
             static_cast<unsigned long long>(reader.packets()), tables.vct ? "found" : "none",
             tables.pat ? "found" : "none", tables.pmts.size(), result.services.size());
  if (const std::string faults = reader.faults(); !faults.empty())
    log().Warn("%s: %s", path.c_str(), faults.c_str());
  return result;
}

}  // namespace atschost
