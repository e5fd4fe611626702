#include "common/json.h"

#include <json/reader.h>
#include <json/writer.h>

#include <exception>
#include <memory>

namespace apps {
namespace {

std::string write(const Json::Value& value, bool utf8) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["commentStyle"] = "None";
  builder["emitUTF8"] = utf8;
  if (utf8) builder["precision"] = 15;  // the digits that every number keeps
  return Json::writeString(builder, value);
}

}  // namespace

std::optional<Json::Value> parseJson(const std::string& text) {
  try {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;  // they would be written again, and are no JSON
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    if (reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return value;
  } catch (const std::exception&) {
    // The text is nested too deeply.
  }
  return std::nullopt;
}

std::string compactJson(const Json::Value& value) { return write(value, false); }

std::string readableJson(const Json::Value& value) { return write(value, true); }

int64_t integer(const Json::Value& object, const char* key) {
  const Json::Value& value = object[key];
  return value.isInt64() ? value.asInt64() : 0;
}

}  // namespace apps
