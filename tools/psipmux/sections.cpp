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
uint16_t pcrPid(const Service& service) {
  return service.streams.empty() ? kNoPid : service.streams.front().pid;
}

// Returns the audio_type of ISO 13818-1 that corresponds to an AC-3 service, or 0.
uint8_t audioType(const Stream& stream) {
  constexpr uint8_t kHearingImpaired = 2;
  constexpr uint8_t kVisualImpairedCommentary = 3;
  if (stream.type != kStreamTypeAc3) return 0;
  return stream.bsmod == 2 ? kVisualImpairedCommentary : stream.bsmod == 3 ? kHearingImpaired : 0;
}

/// Returns an AC-3 audio stream descriptor (A/52 Annex A) without tag and length.
Bytes ac3Descriptor(const Stream& stream) {
  constexpr unsigned kSampleRate48k = 0;
  constexpr unsigned kBsid = 8;
  constexpr unsigned kBitRate192k = 10;
  constexpr unsigned kSurroundNotIndicated = 0;
  constexpr unsigned kDualMono = 0;
  constexpr unsigned kStereo = 2;
  constexpr unsigned kNoLangcod = 0xFF;  // langcod and langcod2 are no longer used
  Bytes body;
  put8(body, kSampleRate48k << 5 | kBsid);
  put8(body, kBitRate192k << 2 | kSurroundNotIndicated);
  const unsigned channels = stream.dualMono ? kDualMono : kStereo;
  put8(body, static_cast<unsigned>(stream.bsmod) << 5 | channels << 1 | (stream.fullSvc ? 1 : 0));
  put8(body, kNoLangcod);
  if (stream.dualMono) put8(body, kNoLangcod);
  if (stream.bsmod < 2) {
    constexpr unsigned kPrimaryAudio = 1;
    put8(body, static_cast<unsigned>(stream.mainid) << 5 | kPrimaryAudio << 3 | 0x07);
  } else {
    put8(body, stream.asvcflags);
  }
  put8(body, 0x01);  // textlen 0, text_code 1
  const bool first = !stream.language.empty(), second = !stream.secondLanguage.empty();
  put8(body, 0x3Fu | (first ? 0x80u : 0) | (second ? 0x40u : 0));
  if (first) putLanguage(body, stream.language);
  if (second) putLanguage(body, stream.secondLanguage);
  return body;
}

/// Returns a service_location_descriptor, which lists the streams of a service, without tag and
/// length.
Bytes serviceLocation(const Service& service) {
  Bytes body;
  put16(body, 0xE000u | pcrPid(service));
  put8(body, static_cast<unsigned>(service.streams.size()));
  for (const Stream& stream : service.streams) {
    put8(body, stream.type);
    put16(body, 0xE000u | stream.pid);
    putLanguage(body, stream.language);
  }
  return body;
}

/// Returns the entry of a virtual channel in a TVCT or CVCT.
Bytes virtualChannel(Medium medium, const Channel& channel, const Service& service) {
  Bytes out;
  for (size_t i = 0; i < 7; ++i) put16(out, i < service.name.size() ? service.name[i] : 0);
  put32(out, 0xF0000000u | static_cast<uint32_t>(service.major) << 18 |
                 static_cast<uint32_t>(service.minor) << 8 | channel.modulation);
  put32(out, 0);  // carrier_frequency, no longer used
  put16(out, channel.tsid);
  put16(out, service.program);
  // path_select and out_of_band of the CVCT are 0; the TVCT has reserved bits there.
  unsigned flags = medium == Medium::kAir ? 0x0DC0u : 0x01C0u;
  if (service.hidden) flags |= 0x1000u;
  if (service.hideGuide) flags |= 0x0200u;
  put16(out, flags | service.serviceType);
  put16(out, service.sourceId);
  Bytes descriptors;
  if (service.sld) putDescriptor(descriptors, 0xA1, serviceLocation(service));
  if (!service.extendedName.empty()) {
    putDescriptor(descriptors, 0xA0, multipleString({{"eng", service.extendedName}}));
  }
  put16(out, 0xFC00u | static_cast<unsigned>(descriptors.size()));
  append(out, descriptors);
  return out;
}

}  // namespace

Bytes buildPat(const Channel& channel) {
  Bytes body;
  for (const Service& service : channel.services) {
    put16(body, service.program);
    put16(body, 0xE000u | service.pmtPid);
  }
  return longSection(kPatTableId, channel.tsid, channel.version, 0, 0, body);
}

Bytes buildPmt(const Service& service, uint8_t version, const std::vector<Rating>& ratings) {
  Bytes body, programInfo;
  if (!ratings.empty()) {
    putDescriptor(programInfo, kContentAdvisoryTag, contentAdvisory(ratings));
  }
  put16(body, 0xE000u | pcrPid(service));
  put16(body, 0xF000u | static_cast<unsigned>(programInfo.size()));
  append(body, programInfo);
  for (const Stream& stream : service.streams) {
    Bytes descriptors;
    if (!stream.language.empty()) {
      Bytes language;
      putLanguage(language, stream.language);
      put8(language, audioType(stream));
      if (!stream.secondLanguage.empty()) {
        putLanguage(language, stream.secondLanguage);
        put8(language, audioType(stream));
      }
      putDescriptor(descriptors, 0x0A, language);
    }
    if (stream.type == kStreamTypeAc3) putDescriptor(descriptors, 0x81, ac3Descriptor(stream));
    if (!service.captions.empty() && &stream == &service.streams.front()) {
      putDescriptor(descriptors, kCaptionServiceTag, captionServices(service.captions));
    }
    put8(body, stream.type);
    put16(body, 0xE000u | stream.pid);
    put16(body, 0xF000u | static_cast<unsigned>(descriptors.size()));
    append(body, descriptors);
  }
  return longSection(kPmtTableId, service.program, version, 0, 0, body);
}

Bytes buildMgt(uint8_t version, const std::vector<MgtEntry>& tables) {
  Bytes body;
  put8(body, 0);  // protocol_version
  put16(body, static_cast<unsigned>(tables.size()));
  for (const MgtEntry& table : tables) {
    put16(body, table.tableType);
    put16(body, 0xE000u | table.pid);
    put8(body, 0xE0u | table.version);
    put32(body, table.numberBytes);
    put16(body, 0xF000);  // table_type_descriptors_length
  }
  put16(body, 0xF000);  // descriptors_length
  return longSection(kMgtTableId, 0, version, 0, 0, body);
}

std::vector<Bytes> buildVct(Medium medium, const Channel& channel) {
  // Fields around the loop: protocol_version, num_channels_in_section, additional descriptors.
  constexpr size_t kAround = 4;
  constexpr size_t kMaxLoop = kMaxSectionSize - kSectionHeaderSize - kCrcSize - kAround;
  struct Part {
    unsigned channels = 0;
    Bytes loop;
  };
  std::vector<Part> parts(1);
  for (const Service& service : channel.services) {
    const Bytes entry = virtualChannel(medium, channel, service);
    if (parts.back().loop.size() + entry.size() > kMaxLoop) parts.emplace_back();
    ++parts.back().channels;
    append(parts.back().loop, entry);
  }
  std::vector<Bytes> sections;
  for (const Part& part : parts) {
    Bytes body;
    put8(body, 0);  // protocol_version
    put8(body, part.channels);
    append(body, part.loop);
    put16(body, 0xFC00);  // additional_descriptors_length
    sections.push_back(longSection(medium == Medium::kAir ? kTvctTableId : kCvctTableId,
                                   channel.tsid, channel.version, sections.size(), parts.size() - 1,
                                   body));
  }
  return sections;
}

Bytes buildStt(uint32_t systemTime, const DaylightSaving& saving) {
  Bytes body;
  put8(body, 0);  // protocol_version
  put32(body, systemTime);
  put8(body, kGpsUtcOffset);
  put8(body, (saving.status ? 0xE0u : 0x60u) | saving.dayOfMonth);
  put8(body, saving.hour);
  return longSection(kSttTableId, 0, 0, 0, 0, body);
}

size_t totalSize(const std::vector<Bytes>& sections) {
  return std::accumulate(sections.begin(), sections.end(), size_t{0},
                         [](size_t sum, const Bytes& section) { return sum + section.size(); });
}

MgtEntry vctMgtEntry(Medium medium, const Channel& channel, const std::vector<Bytes>& sections) {
  return {medium == Medium::kAir ? kTableTypeTvct : kTableTypeCvct, kPsipPid, channel.version,
          static_cast<uint32_t>(totalSize(sections))};
}

}  // namespace psipmux
