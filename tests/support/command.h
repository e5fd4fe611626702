#ifndef ATSC_TESTS_SUPPORT_COMMAND_H_
#define ATSC_TESTS_SUPPORT_COMMAND_H_

#include <atsc/atsc_service.h>
#include <json/json.h>

#include <cstdlib>
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

struct Answer {
  int result;
  std::string text;  // "" for none
};

// Sends a command like a TV application.
inline Answer transmit(const std::string& command) {
  char* text = nullptr;
  const int result = ATSC_TransmitServiceClientJSONCommand(command.c_str(), &text);
  Answer answer{result, text != nullptr ? text : ""};
  free(text);
  return answer;
}

#endif  // ATSC_TESTS_SUPPORT_COMMAND_H_
