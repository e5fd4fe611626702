// Parses and writes JSON.
#ifndef ATSC_APPS_COMMON_JSON_H_
#define ATSC_APPS_COMMON_JSON_H_

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

namespace apps {

// Parses a JSON text. Returns nothing if the text is not valid.
std::optional<Json::Value> parseJson(const std::string& text);

// Writes a value as one line of ASCII.
std::string compactJson(const Json::Value& value);

// Writes a value as one line of UTF-8 for people to read. The result is not yet printable(): it may
// hold characters that control a terminal.
std::string readableJson(const Json::Value& value);

// Returns an integer member of an object, 0 if the member is missing or not an integer.
int64_t integer(const Json::Value& object, const char* key);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_JSON_H_
