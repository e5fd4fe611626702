// Texts of the guide tables that were read.
#ifndef ATSC_TESTS_HOST_RECEIVER_TEST_GUIDE_H_
#define ATSC_TESTS_HOST_RECEIVER_TEST_GUIDE_H_

#include <string>
#include <vector>

#include "receiver/receiver.h"
#include "receiver/tables/psip_decoder.h"
#include "receiver_test_air.h"

namespace receiver_test {

using atschost::Guide;
using atschost::GuideEvent;
using atschost::PsipDecoder;
using atschost::ShownEvent;

// PIDs.
constexpr unsigned kBase = 0x1FFB;
constexpr unsigned kEit0 = 0x1D00, kEit1 = 0x1D01, kEtt0 = 0x1E00;

inline std::string utf16(const std::u16string& text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit >> 8);
    bytes += static_cast<char>(unit);
  }
  return bytes;
}

inline const char* push(PsipDecoder& decoder, unsigned pid, const Bytes& bytes) {
  return decoder.push(
      atschost::parseSection(static_cast<uint16_t>(pid), bytes.data(), bytes.size()));
}

// Returns "id title" of the events of all sources.
inline Texts titles(const atschost::GuideTables& tables) {
  Texts list;
  for (const auto& [key, events] : tables.eits)
    for (const GuideEvent& e : events)
      list.push_back(std::to_string(key.first) + " " + std::to_string(key.second) + " " +
                     latin(e.title));
  return list;
}
inline Texts titles(const atschost::ShownEvents& events) {
  Texts list;
  for (const ShownEvent& e : events) list.push_back(latin(e.event.title) + latin(e.description));
  return list;
}

}  // namespace receiver_test

#endif  // ATSC_TESTS_HOST_RECEIVER_TEST_GUIDE_H_
