#ifndef ATSC_TESTS_SUPPORT_COMMAND_TEXT_H_
#define ATSC_TESTS_SUPPORT_COMMAND_TEXT_H_

#include <json/json.h>

#include <stdexcept>
#include <string>

// Returns the text of a command: {"class":C,"command":N} for the name "C N", and further members.
inline std::string command(const std::string& name, const std::string& members = "") {
  const size_t space = name.find(' ');
  return R"({"class":")" + name.substr(0, space) + R"(","command":")" + name.substr(space + 1) +
         '"' + (members.empty() ? "" : ',' + members) + '}';
}

// Parses a reply, or none.
inline Json::Value parsed(const std::string& text) {
  Json::Value value;
  if (!text.empty() && !Json::Reader().parse(text, value)) {
    throw std::runtime_error("no JSON: " + text);
  }
  return value;
}

#endif  // ATSC_TESTS_SUPPORT_COMMAND_TEXT_H_
