// Commands to the service, one per line up to an empty line. The rest of the input is noise of the
// middleware.
#include "harness.h"

namespace {

void command(const std::string& line) {
  char* text = nullptr;
  const int result = ATSC_TransmitServiceClientJSONCommand(line.c_str(), &text);
  fuzz::require(result == 0 || result == -1, "a result of 0 or -1", line);
  if (text != nullptr) fuzz::parsed(text);
  free(text);
}

// Calls the callback of a running search.
void reportScan(fuzz::Input& input) {
  const AICS_scan_callback callback = fake::scanCallback();
  if (callback == nullptr) return;
  const int state = input.byte() - 1;
  auto progress = input.value<AICS_scan_progress>();
  callback(state == -1 ? nullptr : &progress, state);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Harness& harness = fuzz::Harness::restored();
  fuzz::Input input(data, size);
  const std::vector<std::string> lines = input.lines();
  const uint8_t flags = input.byte();
  fake::setRecording((flags & 1) != 0);  // also formats log lines
  if ((flags & 2) != 0) unlink(harness.path("channels.db3").c_str());
  const fuzz::Input noise = input;
  fake::setNoise(input.rest());
  input = noise;
  for (const std::string& line : lines) {
    // A channel change runs on another thread, 100 ms apart, and has a separate fuzzer.
    if (line.find("CHANNELCHANGE") != std::string::npos) continue;
    command(line);
    if ((flags & 4) != 0) reportScan(input);
  }
  for (const std::string& text : fake::sent()) {
    fuzz::require(fuzz::parsed(text)["cbtype"] == "SCAN", "a scan message", text);
  }
  if ((flags & 8) != 0) harness.checkChannels();
  return 0;
}
