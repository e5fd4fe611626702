// Tables of the guide for the tests, and texts of the tables that were read.
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
using Texts = std::vector<std::string>;

constexpr uint32_t kAir = AI_INPUT_TERRESTRIAL;
constexpr uint32_t kChannel14 = 473000000;
constexpr uint32_t kGpsEpoch = 315964800;

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
// Converts a UTF-16BE text to ASCII.
inline std::string ascii(const std::string& text) {
  std::string plain;
  for (size_t i = 1; i < text.size(); i += 2) plain += text[i - 1] ? '?' : text[i];
  return plain;
}

inline Bytes be32(uint32_t value) { return be16(value >> 16) + be16(value & 0xFFFF); }
inline Bytes counted(const Bytes& bytes) {
  return Bytes{static_cast<uint8_t>(bytes.size())} + bytes;
}
inline Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

inline Bytes segment(uint8_t compression, uint8_t mode, const Bytes& bytes) {
  return Bytes{compression, mode} + counted(bytes);
}
inline Bytes stringOf(const std::string& language, const std::vector<Bytes>& segments) {
  Bytes bytes = bytesOf(language) + Bytes{static_cast<uint8_t>(segments.size())};
  for (const Bytes& s : segments) bytes = bytes + s;
  return bytes;
}
inline Bytes text(const std::string& latin, const std::string& language = "eng") {
  return Bytes{1} + stringOf(language, {segment(0, 0, bytesOf(latin))});
}
inline Bytes text(const Bytes& oneSegment) { return Bytes{1} + stringOf("eng", {oneSegment}); }

struct MgtEntry {
  unsigned type, pid, version;
};
inline Bytes mgt(const std::vector<MgtEntry>& entries, unsigned version = 1) {
  Bytes body = Bytes{0} + be16(entries.size());
  for (const MgtEntry& e : entries)
    body = body + be16(e.type) + be16(0xE000 | e.pid) +
           Bytes{static_cast<uint8_t>(0xE0 | e.version)} + be32(100) + be16(0xF000);
  return section(0xC7, 0, body + be16(0xF000), version);
}

struct Programme {
  unsigned id;
  uint32_t start;
  Bytes title;
  Bytes descriptors = {};
};
inline Bytes eit(unsigned sourceId, const std::vector<Programme>& programmes, unsigned version = 1,
                 bool current = true) {
  Bytes body{0, static_cast<uint8_t>(programmes.size())};
  for (const Programme& p : programmes)
    body = body + be16(0xC000 | p.id) + be32(p.start) + Bytes{0xD0} + be16(1800) +
           counted(p.title) + be16(0xF000 | p.descriptors.size()) + p.descriptors;
  return section(0xCB, sourceId, body, version, current);
}
inline Bytes ett(unsigned sourceId, unsigned eventId, const Bytes& message, unsigned version = 1) {
  return section(0xCC, 7, Bytes{0} + be32(sourceId << 16 | eventId << 2 | 2) + message, version);
}
inline Bytes inParts(Bytes whole, uint8_t number, uint8_t last) {
  whole[6] = number;
  whole[7] = last;
  return sealed(whole);
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
                     ascii(e.title));
  return list;
}
inline Texts titles(const atschost::ShownEvents& events) {
  Texts list;
  for (const ShownEvent& e : events) list.push_back(ascii(e.event.title) + ascii(e.description));
  return list;
}

}  // namespace receiver_test

#endif  // ATSC_TESTS_HOST_RECEIVER_TEST_GUIDE_H_
