// Conversions of the middleware's texts.
#include <atsc/atsc_service.h>

#include <vector>

#include "atsc_text.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const uint32_t encoding = input.below(3);
  const uint16_t claimed = input.number<uint16_t>();
  const std::string bytes = input.rest();
  std::vector<uint8_t> lent(bytes.begin(), bytes.end());
  const multiple_lang_t text{lent.data(), claimed, encoding};
  (void)atsc::textToUTF8(text, static_cast<uint32_t>(lent.size()));
  return 0;
}
