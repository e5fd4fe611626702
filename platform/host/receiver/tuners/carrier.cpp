#include "receiver/tuners/carrier.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <utility>

#include "process/log.h"
#include "receiver/stream/demux.h"
#include "receiver/stream/transport.h"
#include "receiver/tables/psi_decoder.h"
#include "receiver/tables/psip_decoder.h"
#include "receiver/tables/table_ids.h"
#include "receiver/tuners/decoder_log.h"

namespace atschost {
namespace {

constexpr size_t kChunk = 512 * kPacketSize;
// Packets after the services within which an MGT must come: over a second of an 8-VSB carrier. The
// MGT is sent every 150 ms (A/65 7.1).
constexpr uint64_t kMgtPatience = 16384;

class CarrierReader {
 public:
  CarrierReader(Clock& clock, uint32_t source, StreamId stream)
      : clock_(clock),
        stream_(std::move(stream)),
        psi_(source, logDecoderMessage),
        demux_([this](uint16_t pid) { return psi_.wants(pid) || psip_.wants(pid); },
               [this](const Section& section) { return push(section); }) {}

  // Returns 0, or the errno of a failed read.
  int read(int fd, const std::atomic<bool>& stop, bool whole) {
    std::vector<uint8_t> chunk(kChunk);
    bool secondLook = false;
    size_t total = 0;
    while (total < kReadLimit && (whole || !enough()) && !stop) {
      const ssize_t got = ::read(fd, chunk.data(), chunk.size());
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return errno;
      if (got > 0) {
        demux_.push(chunk.data(), static_cast<size_t>(got));
        total += static_cast<size_t>(got);
        continue;
      }
      demux_.finish();
      psip_.endPass();
      const bool missedSome = psi_.missedSome() || (mgtSeen_ && !psip_.guideSettled());
      if (secondLook || !missedSome || lseek(fd, 0, SEEK_SET) != 0) break;
      secondLook = true;
      total = 0;
    }
    if (total >= kReadLimit) psip_.giveUpSilent();
    return 0;
  }

  const CarrierTables& tables() const { return psi_.tables(); }
  PsipDecoder& psip() { return psip_; }
  Demux& demux() { return demux_; }

 private:
  const char* push(const Section& section) {
    const char* fault = psi_.wants(section.pid) ? psi_.push(section) : nullptr;
    if (fault || !psip_.wants(section.pid)) return fault;
    fault = psip_.push(section);
    mgtSeen_ |= !fault && section.tableId == kMgtId;
    if (const auto time = psip_.takeSystemTime())
      clock_.remember(stream_, *time, std::chrono::steady_clock::now());
    return fault;
  }

  bool enough() {
    if (!psi_.complete()) return false;
    if (servicesAt_ == 0) servicesAt_ = demux_.packets();
    if (mgtSeen_) return psip_.guideSettled() && psip_.guideComplete() && psip_.gpsUtcOffset();
    return demux_.packets() - servicesAt_ > kMgtPatience;
  }

  Clock& clock_;
  const StreamId stream_;
  PsiDecoder psi_;
  PsipDecoder psip_;
  Demux demux_;
  bool mgtSeen_ = false;
  uint64_t servicesAt_ = 0;  // packets read when the services were complete
};

}  // namespace

CarrierResult readCarrier(const Air& air, Clock& clock, uint32_t source, uint32_t frequency,
                          const std::atomic<bool>& stop, bool whole) {
  CarrierResult result;
  const std::string path = air.carrierPath(source, frequency);
  if (path.empty()) return result;
  const File file = openRegular(path);
  if (!file) {
    result.known = errno == ENOENT || errno == ENOTDIR;
    if (!result.known) log().Warn("%s: no lock: %m", path.c_str());
    return result;
  }
  result.stream = streamId(path, file);
  if (!result.stream) {
    log().Warn("%s: no lock: %m", path.c_str());
    return result;
  }
  result.locked = true;

  CarrierReader reader(clock, source, *result.stream);
  const int error = reader.read(file.fd(), stop, whole);
  if (stop) return result;
  if (error) {
    errno = error;
    log().Warn("%s: reading ended: %m", path.c_str());
    return result;
  }
  result.known = true;
  const CarrierTables& tables = reader.tables();
  result.services = buildServices(tables, source, frequency);
  result.guide = reader.psip().guide();
  result.guideComplete = reader.psip().guideComplete();
  result.gpsUtcOffset = reader.psip().gpsUtcOffset();
  result.ratingRegions = reader.psip().takeRatingRegions();

  log().Info("%s: %llu packets, VCT %s, PAT %s, %zu PMTs: %zu services; %zu EITs", path.c_str(),
             static_cast<unsigned long long>(reader.demux().packets()),
             tables.vct ? "found" : "none", tables.pat ? "found" : "none", tables.pmts.size(),
             result.services.size(), result.guide.eits.size());
  if (const std::string faults = reader.demux().takeFaults(); !faults.empty())
    log().Warn("%s: %s", path.c_str(), faults.c_str());
  return result;
}

}  // namespace atschost
