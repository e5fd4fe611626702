// Conversions of rating settings and texts between records of the middleware and JSON.
#ifndef ATSC_ATSC_SERVER_SERVICE_RATING_H_
#define ATSC_ATSC_SERVER_SERVICE_RATING_H_

#include <aiin.h>
#include <aipc.h>
#include <json/json.h>

#include <cstdint>
#include <string>
#include <vector>

namespace atsc {

// All functions run on the BUS server thread.

// Returns the current rating region, unless `region` is null, and the details of the current input.
// Returns false and logs the reason when the input is not an ATSC input or a middleware call fails.
bool GetCurrentATSCSetting(AIPC_region_list_t* region, AIIN_input_t* input);

// Converts a text of the middleware to NUL-terminated UTF-8. Copies a single-byte text with its
// declared length; converts at most AIPC_TEXT_SIZE bytes of UTF-16. Returns false for UTF-16 that
// cannot be converted.
bool Copy2UTF8(std::vector<uint8_t>& out, const multiple_lang_t* text);

// Adds the members of the rating document to `value`.
void ConvertPCDime2JsonValue(const AIPC_dime_t& dime, Json::Value& value);

// Reads the stored settings of a region and applies the rating document in `request`. Returns true
// and does not change `dime` when the current input is not an ATSC input. Returns false, with
// undefined `dime`, when the stored settings cannot be read or "us", "can" or "dwn" is missing.
bool ConvertJsonValue2PCDime(const Json::Value& request, AIPC_dime_t& dime);

// Rewrites a USA TV rating such as "D,TV-14,V" as "TV-14-D-V". `buffer` is zeroed and has space for
// the size of `rating` plus 2 bytes, and for at least `size` bytes. `size` is the declared length
// of the text; a part that is longer than `size` ends the text. Writes nothing without a "TV-"
// part.
void ConvertUSATVRatingString(const std::string& rating, uint8_t* buffer, uint32_t size);

// Returns whether rating part `a` comes before `b`, by the first character only. Not a strict
// ordering for empty parts: two empty parts come before each other.
bool StringCompare(const std::string& a, const std::string& b);

}  // namespace atsc

#endif  // ATSC_ATSC_SERVER_SERVICE_RATING_H_
