// Rating settings and texts between the middleware's records and JSON.
#ifndef ATSC_ATSC_SERVER_SERVICE_RATING_H_
#define ATSC_ATSC_SERVER_SERVICE_RATING_H_

#include <aiin.h>
#include <aipc.h>
#include <json/json.h>

#include <cstdint>
#include <string>
#include <vector>

namespace atsc {

// All on the BUS server thread.

// The current rating region, unless `region` is null, and the details of the current input. False,
// with the reason in the log, when it is no ATSC input or the middleware does not tell.
bool GetCurrentATSCSetting(AIPC_region_list_t* region, AIIN_input_t* input);

// A text of the middleware as NUL-terminated UTF-8. A text of single bytes is copied as long as it
// says; of UTF-16 at most AIPC_TEXT_SIZE bytes are converted. False for UTF-16 that cannot be.
bool Copy2UTF8(std::vector<uint8_t>& out, const multiple_lang_t* text);

// Adds the members of the rating document to `value`.
void ConvertPCDime2JsonValue(const AIPC_dime_t& dime, Json::Value& value);

// The stored settings of a region with what the rating document in `request` changes. True, with
// `dime` as it was, when the current input is no ATSC input; false when the stored settings cannot
// be read or "us", "can" or "dwn" are missing: `dime` is of no use then.
bool ConvertJsonValue2PCDime(const Json::Value& request, AIPC_dime_t& dime);

// Rewrites a USA TV rating such as "D,TV-14,V" as "TV-14-D-V". `buffer` is zeroed and has room for
// the size of `rating` and 2 bytes more, at least for `size` bytes; `size` is what its text is said
// to have: a part that is longer than that ends the text. Nothing is written without a "TV-" part.
void ConvertUSATVRatingString(const std::string& rating, uint8_t* buffer, uint32_t size);

// Whether rating part `a` comes before `b`: by first character alone. No ordering for two empty
// ones, which both come before each other.
bool StringCompare(const std::string& a, const std::string& b);

}  // namespace atsc

#endif  // ATSC_ATSC_SERVER_SERVICE_RATING_H_
