// Rating texts and rating documents. The first byte of an input selects the function.
#include <algorithm>

#include "harness.h"
#include "service/server/atsc_server_service_rating.h"

namespace {

// A USA TV rating becomes the "TV-" part and then all others, joined by '-'.
void rewrite(fuzz::Input& input) {
  const uint32_t size = input.byte();
  const std::string rating = input.rest();
  // A buffer of exactly the required size.
  std::vector<uint8_t> buffer(std::max<size_t>(size, rating.size() + 2));
  atsc::ConvertUSATVRatingString(rating, buffer.data(), size);
  if (rating.find('\0') != std::string::npos) return;
  const std::string text(buffer.begin(), std::find(buffer.begin(), buffer.end(), 0));
  if (text.empty()) return;
  fuzz::require(text.compare(0, 3, "TV-") == 0, "begins with TV-", rating);
  std::string before = rating;
  std::string after = text;
  for (std::string* each : {&before, &after}) {
    std::replace(each->begin(), each->end(), ',', '-');
    std::sort(each->begin(), each->end());
  }
  // A part that is too long for `size` ends the text.
  if (rating.size() < size) fuzz::require(before == after, "all characters", rating);
}

// The document of a record contains all its values.
void checkDocument(AIPC_dime_t record) {
  record.region &= INT32_MAX;  // larger ones are negative in the document
  Json::Value document;
  atsc::ConvertPCDime2JsonValue(record, document);
  const std::string text = Json::StyledWriter().write(document);
  AIPC_dime_t again{};
  fuzz::require(atsc::ConvertJsonValue2PCDime(fuzz::parsed(text), again), "a readable one", text);
  fuzz::require(memcmp(&record, &again, sizeof record) == 0, "the record again", text);
}

void write(fuzz::Input& input) { checkDocument(input.value<AIPC_dime_t>()); }

void read(fuzz::Input& input) {
  fake::setNoise(input.bytes(input.byte()));
  AIPC_dime_t record{};
  try {
    Json::Value document;
    if (!Json::Reader().parse(input.rest(), document, false) || !document.isObject()) return;
    if (!atsc::ConvertJsonValue2PCDime(document, record)) return;
  } catch (const std::exception&) {
    return;  // values of another type, which the dispatcher catches
  }
  fake::setNoise({});
  checkDocument(record);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static constexpr void (*kFunctions[])(fuzz::Input&) = {rewrite, write, read, rewrite};
  fuzz::Harness::restored();
  fuzz::Input input(data, size);
  kFunctions[input.byte() % 4](input);
  return 0;
}
