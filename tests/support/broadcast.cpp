#include "broadcast.h"

#include "packets.h"
#include "sections.h"

namespace broadcast {

Bytes operator+(Bytes a, const Bytes& b) {
  psipmux::append(a, b);
  return a;
}

Bytes be16(unsigned value) {
  return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

Bytes be32(uint32_t value) { return be16(value >> 16) + be16(value & 0xFFFF); }

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

Bytes counted(const Bytes& bytes) { return Bytes{static_cast<uint8_t>(bytes.size())} + bytes; }

Bytes section(uint8_t tableId, unsigned extension, const Bytes& body, unsigned version,
              bool current) {
  Bytes whole = psipmux::longSection(tableId, static_cast<uint16_t>(extension),
                                     static_cast<uint8_t>(version), 0, 0, body);
  if (!current) whole[5] &= 0xFE;
  return sealed(whole);
}

Bytes sealed(Bytes bytes) {
  bytes.resize(bytes.size() - psipmux::kCrcSize);
  psipmux::put32(bytes, psipmux::crc32(bytes));
  return bytes;
}

Bytes inParts(Bytes whole, uint8_t number, uint8_t last) {
  whole[6] = number;
  whole[7] = last;
  return sealed(whole);
}

Bytes packets(unsigned pid, const std::vector<Bytes>& sections) {
  psipmux::PacketWriter stream;
  for (const Bytes& whole : sections) stream.write(static_cast<uint16_t>(pid), whole);
  return stream.take();
}

Bytes segment(uint8_t compression, uint8_t mode, const Bytes& bytes) {
  return Bytes{compression, mode} + counted(bytes);
}

Bytes stringOf(const std::string& language, const std::vector<Bytes>& segments) {
  Bytes bytes = bytesOf(language) + Bytes{static_cast<uint8_t>(segments.size())};
  for (const Bytes& s : segments) bytes = bytes + s;
  return bytes;
}

Bytes text(const std::string& latin, const std::string& language) {
  return Bytes{1} + stringOf(language, {segment(0, 0, bytesOf(latin))});
}

Bytes text(const Bytes& oneSegment) { return Bytes{1} + stringOf("eng", {oneSegment}); }

Bytes descriptor(uint8_t tag, const Bytes& content) { return Bytes{tag} + counted(content); }

Bytes contentAdvisory(uint8_t region, const std::vector<std::pair<int, int>>& values) {
  Bytes content{0xC1, region, static_cast<uint8_t>(values.size())};
  for (const auto& [dimension, value] : values)
    content = content + Bytes{static_cast<uint8_t>(dimension), static_cast<uint8_t>(0xF0 | value)};
  return descriptor(0x87, content + Bytes{0});
}

Bytes serviceLocation(const std::vector<Element>& elements) {
  Bytes content = be16(0xE031) + Bytes{static_cast<uint8_t>(elements.size())};
  for (const Element& e : elements) {
    content = content + Bytes{e.type} + be16(0xE000 | e.pid);
    psipmux::putLanguage(content, e.language);
  }
  return descriptor(0xA1, content);
}

Bytes vct(uint8_t tableId, const std::vector<Channel>& channels, unsigned version, bool current) {
  Bytes body{0, static_cast<uint8_t>(channels.size())};
  for (const Channel& c : channels) {
    Bytes name;
    for (const char letter : c.name) name = name + be16(static_cast<uint8_t>(letter));
    name.resize(14);
    body = body + name;
    body.push_back(static_cast<uint8_t>(0xF0 | c.major >> 6));
    body = body + be16((c.major << 10 | c.minor) & 0xFFFF);
    body = body + Bytes{4, 0, 0, 0, 0} + be16(c.tsid) + be16(c.program);
    // The bits for "out of band" on cable are reserved and set in terrestrial tables.
    body.push_back(static_cast<uint8_t>((c.hidden ? 0x11 : 0x01) | (tableId == 0xC8 ? 0x0C : 0)));
    body.push_back(static_cast<uint8_t>(0xC0 | c.serviceType));
    body = body + be16(c.program) + be16(0xFC00 | c.descriptors.size()) + c.descriptors;
  }
  return section(tableId, 1, body + be16(0xFC00), version, current);
}

Bytes pat(const std::vector<std::pair<unsigned, unsigned>>& programs, unsigned tsid) {
  Bytes body;
  for (const auto& [program, pid] : programs) body = body + be16(program) + be16(0xE000 | pid);
  return section(0, tsid, body);
}

Bytes pmt(unsigned program, const std::vector<PmtStream>& streams, const Bytes& descriptors) {
  Bytes body = be16(0xE031) + be16(0xF000 | descriptors.size()) + descriptors;
  for (const PmtStream& s : streams)
    body = body + Bytes{s.type} + be16(0xE000 | s.pid) + be16(0xF000 | s.descriptors.size()) +
           s.descriptors;
  return section(2, program, body);
}

Bytes stt(uint32_t time, uint8_t gpsUtcOffset) {
  return section(0xCD, 0, Bytes{0} + be32(time) + Bytes{gpsUtcOffset, 0x60, 0});
}

Bytes mgt(const std::vector<MgtEntry>& entries, unsigned version) {
  std::vector<psipmux::MgtEntry> tables;
  for (const MgtEntry& e : entries)
    tables.push_back({static_cast<uint16_t>(e.type), static_cast<uint16_t>(e.pid),
                      static_cast<uint8_t>(e.version), 100});
  return psipmux::buildMgt(static_cast<uint8_t>(version), tables);
}

Bytes eit(unsigned sourceId, const std::vector<Programme>& programmes, unsigned version,
          bool current) {
  Bytes body{0, static_cast<uint8_t>(programmes.size())};
  for (const Programme& p : programmes)
    body = body + be16(0xC000 | p.id) + be32(p.start) +
           Bytes{static_cast<uint8_t>(0xD0 | p.duration >> 16)} + be16(p.duration & 0xFFFF) +
           counted(p.title) + be16(0xF000 | p.descriptors.size()) + p.descriptors;
  return section(0xCB, sourceId, body, version, current);
}

Bytes ett(unsigned sourceId, unsigned eventId, const Bytes& message, unsigned version) {
  return section(0xCC, 7, Bytes{0} + be32(sourceId << 16 | eventId << 2 | 2) + message, version);
}

}  // namespace broadcast
