// JSON texts as the subcommands write and read them.
#ifndef ATSC_TV_SERVICE_JSON_H_
#define ATSC_TV_SERVICE_JSON_H_

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tv {

// The value of a JSON text, nothing when the text is not valid.
std::optional<Json::Value> parseJson(const std::string& text);

// One line, ASCII only.
std::string compactJson(const Json::Value& value);

// One line for a reader: other scripts as they are. Not yet fit for a terminal.
std::string readableJson(const Json::Value& value);

// The integer of an object's member, 0 when the member is missing or holds something else.
int64_t integer(const Json::Value& object, const char* key);

}  // namespace tv

#endif  // ATSC_TV_SERVICE_JSON_H_
