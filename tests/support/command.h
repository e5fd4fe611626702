#ifndef ATSC_TESTS_SUPPORT_COMMAND_H_
#define ATSC_TESTS_SUPPORT_COMMAND_H_

#include <atsc/atsc_service.h>

#include <cstdlib>
#include <string>

#include "command_text.h"

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
