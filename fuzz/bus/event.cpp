// Events of the middleware. An input is a list of steps, each one byte: an event with its data, or
// the end of the service timer. 0 ends the steps; the rest is noise.
#include <algorithm>

#include "arrivals.h"
#include "harness.h"

namespace {

// The last event of each queue in every input; the one of the guide rewrites it and is only used
// with guide events.
constexpr int32_t kLast = AFW_VIEWING_DELAY;
constexpr int32_t kLastOfGuide = AFW_EPG_COMPLETE;

Arrivals<std::string>& gSent = *new Arrivals<std::string>;  // threads use it until the end

bool isLast(const std::string& text) {
  return text.find("\"VIEWING_DELAY\"") != std::string::npos ||
         text.find("\"EPG_COMPLETE\"") != std::string::npos;
}

// Reports an event with data in a buffer of its exact size, to detect reads past the end.
void report(int32_t event, fuzz::Input& input) {
  const uint8_t kind = input.byte();
  if (kind == 0) {
    ATSC_Service_event_cb(event, nullptr);
  } else if (event == AFW_EAS_START_BLOCKING || event == AFW_EAS_START_NON_BLOCKING) {
    const std::string bytes(input.bytes(kind >= 0xF0 ? input.value<uint16_t>() : kind / 2));
    std::vector<uint8_t> text(bytes.begin(), bytes.end());
    text.shrink_to_fit();
    // A long text repeats a short text.
    if (kind == 0xFF) text.resize(UINT16_MAX, text.empty() ? 0 : text[0]);
    multiple_lang_t alert{text.empty() ? nullptr : text.data(), static_cast<uint16_t>(text.size()),
                          kind & 1};
    if (text.empty()) alert.length = kind;
    ATSC_Service_event_cb(event, &alert);
  } else {
    auto time = input.value<AIFW_time_data>();
    ATSC_Service_event_cb(event, &time);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Harness::restored();
  [[maybe_unused]] static const bool started =
      (ATSC_Service_init(nullptr), fuzz::Harness::restored(), true);
  fuzz::Input input(data, size);
  std::vector<int32_t> events;
  for (;;) {
    const uint8_t step = input.byte();
    if (step == 0) break;
    if (step == 0xFF) events.push_back(input.value<int32_t>());
    if (step < 0xFF) events.push_back(step - 1);
    if (events.size() > 64) break;
  }
  gSent.clear();
  fake::onSend([](const std::string& text) { gSent.add(text); });
  const uint8_t flags = input.byte();
  fuzz::Input noise = input;
  fake::setUpdatedSources(std::vector<uint32_t>((flags >> 4) * 70u, 0xFFFFFFFF));
  fake::setNoise(noise.rest());
  size_t lasts = 1;
  bool guide = false;
  for (const int32_t event : events) {
    if (event == 0xFD) {
      fake::fireTimer();
      continue;
    }
    if (event == kLast || event == kLastOfGuide) ++lasts;
    guide = guide || event == AFW_EPG_UPDATE;
    report(event, input);
  }
  ATSC_Service_event_cb(kLast, nullptr);
  if (guide) {
    ATSC_Service_event_cb(kLastOfGuide, nullptr);
    ++lasts;
  }
  for (; lasts > 0; --lasts) {
    const std::vector<std::string> texts = gSent.takeUntil(isLast);
    fuzz::require(!texts.empty(), "an answer to the last event");
    for (const std::string& text : texts) {
      const Json::Value message = fuzz::parsed(text);
      fuzz::require(message["class"] == "CALLBACK", "class", text);
      fuzz::require(message["cbtype"].isString(), "cbtype", text);
    }
  }
  return 0;
}
