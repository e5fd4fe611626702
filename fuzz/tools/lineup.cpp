// Lineups for psipmux. The output must be the streams of a lineup or an error of one line, and the
// receiver must not drop any written section.
#include "lineup.h"

#include <string>

#include "input.h"
#include "mux.h"
#include "receiver/stream/demux.h"
#include "receiver/tables/psi_decoder.h"
#include "receiver/tables/psip_decoder.h"

namespace {

constexpr size_t kMostChannels = 3;             // a stream is up to 3 MB
constexpr uint32_t kFirstTime = 1'300'000'000;  // GPS seconds
constexpr uint32_t kTimes = 100'000'000;

void checkLine(const std::string& line) {
  for (const char letter : line) fuzz::require(letter >= ' ' && letter <= '~', "printable", line);
}

void receive(psipmux::Medium medium, const psipmux::Bytes& stream) {
  atschost::PsiDecoder psi(medium == psipmux::Medium::kAir ? AI_INPUT_TERRESTRIAL : AI_INPUT_CABLE);
  atschost::PsipDecoder psip;
  atschost::Demux demux([&](uint16_t pid) { return psi.wants(pid) || psip.wants(pid); },
                        [&](const atschost::Section& section) {
                          const char* fault = psi.wants(section.pid) ? psi.push(section) : nullptr;
                          return !fault && psip.wants(section.pid) ? psip.push(section) : fault;
                        });
  demux.push(stream.data(), stream.size());
  demux.finish();
  psip.endPass();
  const std::string faults = demux.takeFaults();
  fuzz::require(faults.empty(), "sections without faults", faults);
  (void)psip.guide();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string json(reinterpret_cast<const char*>(data), size);
  uint32_t time = 0;  // any value that depends on the input
  for (const char letter : json) time = time * 31 + static_cast<uint8_t>(letter);
  time = kFirstTime + time % kTimes;
  try {
    const psipmux::Lineup lineup = psipmux::parseLineup(json, "lineup");
    for (size_t i = 0; i < lineup.channels.size() && i < kMostChannels; ++i) {
      receive(lineup.medium, psipmux::multiplex(lineup, lineup.channels[i], time));
    }
  } catch (const psipmux::LineupError& error) {
    checkLine(error.what());
  } catch (const psipmux::MuxError& error) {
    checkLine(error.what());
  }
  return 0;
}
