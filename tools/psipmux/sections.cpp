#include "sections.h"

#include <numeric>

#include "guide.h"

namespace psipmux {
namespace {

constexpr uint8_t kPatTableId = 0x00;
constexpr uint8_t kPmtTableId = 0x02;
constexpr uint8_t kMgtTableId = 0xC7;
constexpr uint8_t kTvctTableId = 0xC8;
constexpr uint8_t kCvctTableId = 0xC9;
constexpr uint8_t kSttTableId = 0xCD;

constexpr uint16_t kTableTypeTvct = 0x0000;  // current_next_indicator 1
constexpr uint16_t kTableTypeCvct = 0x0002;

constexpr uint16_t kNoPid = 0x1FFF;
uint16_t PcrPid(const Service& service) {
  return service.streams.empty() ? kNoPid : service.streams.front().pid;
}

// ISO 13818-1 audio_type of the AC-3 service kinds that have one.
uint8_t AudioType(const Stream& stream) {
  constexpr uint8_t kHearingImpaired = 2;
  constexpr uint8_t kVisualImpairedCommentary = 3;
  if (stream.type != kStreamTypeAc3) return 0;
  return stream.bsmod == 2 ? kVisualImpairedCommentary : stream.bsmod == 3 ? kHearingImpaired : 0;
}

/// AC-3 audio stream descriptor, A/52 Annex A.
Bytes Ac3Descriptor(const Stream& stream) {
  constexpr unsigned kSampleRate48k = 0;
  constexpr unsigned kBsid = 8;
  constexpr unsigned kBitRate192k = 10;
  constexpr unsigned kSurroundNotIndicated = 0;
  constexpr unsigned kDualMono = 0;
  constexpr unsigned kStereo = 2;
  constexpr unsigned kNoLangcod = 0xFF;  // langcod and langcod2 are no longer used
  Bytes body;
  Put8(body, kSampleRate48k << 5 | kBsid);
  Put8(body, kBitRate192k << 2 | kSurroundNotIndicated);
  const unsigned channels = stream.dual_mono ? kDualMono : kStereo;
  Put8(body, static_cast<unsigned>(stream.bsmod) << 5 | channels << 1 | (stream.full_svc ? 1 : 0));
  Put8(body, kNoLangcod);
  if (stream.dual_mono) Put8(body, kNoLangcod);
  if (stream.bsmod < 2) {
    constexpr unsigned kPrimaryAudio = 1;
    Put8(body, static_cast<unsigned>(stream.mainid) << 5 | kPrimaryAudio << 3 | 0x07);
  } else {
    Put8(body, stream.asvcflags);
  }
  Put8(body, 0x01);  // textlen 0, text_code 1
  const bool first = !stream.language.empty(), second = !stream.second_language.empty();
  Put8(body, 0x3Fu | (first ? 0x80u : 0) | (second ? 0x40u : 0));
  if (first) PutLanguage(body, stream.language);
  if (second) PutLanguage(body, stream.second_language);
  return body;
}

/// service_location_descriptor: the streams of a service for receivers that do not read the PMT.
Bytes ServiceLocation(const Service& service) {
  Bytes body;
  Put16(body, 0xE000u | PcrPid(service));
  Put8(body, static_cast<unsigned>(service.streams.size()));
  for (const Stream& stream : service.streams) {
    Put8(body, stream.type);
    Put16(body, 0xE000u | stream.pid);
    PutLanguage(body, stream.language);
  }
  return body;
}

/// One virtual channel of the loop in a TVCT or CVCT.
Bytes VirtualChannel(Medium medium, const Channel& channel, const Service& service) {
  Bytes out;
  for (size_t i = 0; i < 7; ++i) Put16(out, i < service.name.size() ? service.name[i] : 0);
  Put32(out, 0xF0000000u | static_cast<uint32_t>(service.major) << 18 |
                 static_cast<uint32_t>(service.minor) << 8 | channel.modulation);
  Put32(out, 0);  // carrier_frequency, no longer used
  Put16(out, channel.tsid);
  Put16(out, service.program);
  // The CVCT has path_select and out_of_band, both 0, where the TVCT has reserved bits.
  unsigned flags = medium == Medium::kAir ? 0x0DC0u : 0x01C0u;
  if (service.hidden) flags |= 0x1000u;
  if (service.hide_guide) flags |= 0x0200u;
  Put16(out, flags | service.service_type);
  Put16(out, service.source_id);
  Bytes descriptors;
  if (service.sld) PutDescriptor(descriptors, 0xA1, ServiceLocation(service));
  if (!service.extended_name.empty()) {
    PutDescriptor(descriptors, 0xA0, MultipleString({{"eng", service.extended_name}}));
  }
  Put16(out, 0xFC00u | static_cast<unsigned>(descriptors.size()));
  Append(out, descriptors);
  return out;
}

}  // namespace

Bytes BuildPat(const Channel& channel) {
  Bytes body;
  for (const Service& service : channel.services) {
    Put16(body, service.program);
    Put16(body, 0xE000u | service.pmt_pid);
  }
  return LongSection(kPatTableId, channel.tsid, channel.version, 0, 0, body);
}

Bytes BuildPmt(const Service& service, uint8_t version, const std::vector<Rating>& ratings) {
  Bytes body, program_info;
  if (!ratings.empty()) {
    PutDescriptor(program_info, kContentAdvisoryTag, ContentAdvisory(ratings));
  }
  Put16(body, 0xE000u | PcrPid(service));
  Put16(body, 0xF000u | static_cast<unsigned>(program_info.size()));
  Append(body, program_info);
  for (const Stream& stream : service.streams) {
    Bytes descriptors;
    if (!stream.language.empty()) {
      Bytes language;
      PutLanguage(language, stream.language);
      Put8(language, AudioType(stream));
      if (!stream.second_language.empty()) {
        PutLanguage(language, stream.second_language);
        Put8(language, AudioType(stream));
      }
      PutDescriptor(descriptors, 0x0A, language);
    }
    if (stream.type == kStreamTypeAc3) PutDescriptor(descriptors, 0x81, Ac3Descriptor(stream));
    if (!service.captions.empty() && &stream == &service.streams.front()) {
      PutDescriptor(descriptors, kCaptionServiceTag, CaptionServices(service.captions));
    }
    Put8(body, stream.type);
    Put16(body, 0xE000u | stream.pid);
    Put16(body, 0xF000u | static_cast<unsigned>(descriptors.size()));
    Append(body, descriptors);
  }
  return LongSection(kPmtTableId, service.program, version, 0, 0, body);
}

Bytes BuildMgt(uint8_t version, const std::vector<MgtEntry>& tables) {
  Bytes body;
  Put8(body, 0);  // protocol_version
  Put16(body, static_cast<unsigned>(tables.size()));
  for (const MgtEntry& table : tables) {
    Put16(body, table.table_type);
    Put16(body, 0xE000u | table.pid);
    Put8(body, 0xE0u | table.version);
    Put32(body, table.number_bytes);
    Put16(body, 0xF000);  // table_type_descriptors_length
  }
  Put16(body, 0xF000);  // descriptors_length
  return LongSection(kMgtTableId, 0, version, 0, 0, body);
}

std::vector<Bytes> BuildVct(Medium medium, const Channel& channel) {
  // The fields around the loop: protocol_version, num_channels_in_section, additional descriptors.
  constexpr size_t kAround = 4;
  constexpr size_t kMaxLoop = kMaxSectionSize - kSectionHeaderSize - kCrcSize - kAround;
  struct Part {
    unsigned channels = 0;
    Bytes loop;
  };
  std::vector<Part> parts(1);
  for (const Service& service : channel.services) {
    const Bytes entry = VirtualChannel(medium, channel, service);
    if (parts.back().loop.size() + entry.size() > kMaxLoop) parts.emplace_back();
    ++parts.back().channels;
    Append(parts.back().loop, entry);
  }
  std::vector<Bytes> sections;
  for (const Part& part : parts) {
    Bytes body;
    Put8(body, 0);  // protocol_version
    Put8(body, part.channels);
    Append(body, part.loop);
    Put16(body, 0xFC00);  // additional_descriptors_length
    sections.push_back(LongSection(medium == Medium::kAir ? kTvctTableId : kCvctTableId,
                                   channel.tsid, channel.version, sections.size(), parts.size() - 1,
                                   body));
  }
  return sections;
}

Bytes BuildStt(uint32_t system_time, const DaylightSaving& saving) {
  Bytes body;
  Put8(body, 0);  // protocol_version
  Put32(body, system_time);
  Put8(body, kGpsUtcOffset);
  Put8(body, (saving.status ? 0xE0u : 0x60u) | saving.day_of_month);
  Put8(body, saving.hour);
  return LongSection(kSttTableId, 0, 0, 0, 0, body);
}

size_t TotalSize(const std::vector<Bytes>& sections) {
  return std::accumulate(sections.begin(), sections.end(), size_t{0},
                         [](size_t sum, const Bytes& section) { return sum + section.size(); });
}

MgtEntry VctMgtEntry(Medium medium, const Channel& channel, const std::vector<Bytes>& sections) {
  return {medium == Medium::kAir ? kTableTypeTvct : kTableTypeCvct, kPsipPid, channel.version,
          static_cast<uint32_t>(TotalSize(sections))};
}

}  // namespace psipmux
