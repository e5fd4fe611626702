#include "receiver/station/service.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "middleware_types.h"
#include "process/log.h"
#include "receiver/air/frequency_plan.h"
#include "receiver/station/audio.h"

namespace atschost {
namespace {

// Converts service_type (A/65 table 6.7).
uint32_t typeOf(uint8_t serviceType) {
  switch (serviceType) {
    case 0x03:  // audio only
      return AISRV_TYPE_RADIO;
    case 0x04:  // data only
    case 0x05:  // software download
      return AISRV_TYPE_DATA;
    default:
      return AISRV_TYPE_TV;
  }
}

uint32_t typeOf(const std::vector<AISRV_pid_info>& streams) {
  if (std::any_of(streams.begin(), streams.end(), isVideo)) return AISRV_TYPE_TV;
  if (std::any_of(streams.begin(), streams.end(), isAudio)) return AISRV_TYPE_RADIO;
  return AISRV_TYPE_DATA;
}

// Cable operators can use a one-part number instead of two parts (A/65 6.3.2).
void setNumber(ServiceKey& key, uint16_t major, uint16_t minor) {
  const bool onePart = key.source == AI_INPUT_CABLE && (major & 0x3F0) == 0x3F0;
  key.major = onePart ? static_cast<uint16_t>(((major & 0x00F) << 10) + minor) : major;
  key.minor = onePart ? 0 : minor;
}

// Returns whether a channel is on this carrier, in a form that this receiver can play, and for
// viewers.
bool isReceivable(const VirtualChannel& channel, const CarrierTables& tables) {
  constexpr uint8_t kAnalogModulation = 0x01;
  constexpr uint8_t kAnalogService = 0x01;
  if (channel.hidden || channel.outOfBand) return false;
  if (channel.modulationMode == kAnalogModulation || channel.serviceType == kAnalogService)
    return false;
  if (channel.programNumber == 0 || channel.programNumber == 0xFFFF) return false;  // inactive
  // Entries may describe channels of other carriers. When VCT and PAT have different transport
  // stream ids for this carrier, both are accepted.
  return channel.tsid == tables.vct->tsid || (tables.pat && channel.tsid == tables.pat->tsid);
}

// The service location descriptor lists the streams; details of audio are from the PMT.
std::vector<AISRV_pid_info> streamsOf(const VirtualChannel& channel, const CarrierTables& tables) {
  const auto pmt = tables.pmts.find(channel.programNumber);
  if (pmt == tables.pmts.end()) return channel.streams;
  if (!channel.hasLocation) return pmt->second;
  std::vector<AISRV_pid_info> streams = channel.streams;
  for (AISRV_pid_info& stream : streams) {
    for (const AISRV_pid_info& detail : pmt->second) {
      if (detail.pid != stream.pid) continue;
      stream.audio_kind = detail.audio_kind;
      stream.main_audio_number = detail.main_audio_number;
      stream.description_mask = detail.description_mask;
      stream.full_mix = detail.full_mix;
      std::copy(std::begin(detail.language), std::end(detail.language), stream.second_language);
    }
  }
  return streams;
}

// Returns the caption services of the PMT, if it was received.
std::vector<CaptionService> captionsOf(uint16_t program, const CarrierTables& tables) {
  const auto found = tables.captions.find(program);
  return found == tables.captions.end() ? std::vector<CaptionService>() : found->second;
}

}  // namespace

std::vector<Service> buildServices(const CarrierTables& tables, uint32_t source,
                                   uint32_t frequency) {
  std::vector<Service> services;
  bool twinLogged = false;
  const auto add = [&](Service service) {
    const bool known = std::any_of(services.begin(), services.end(),
                                   [&](const Service& s) { return s.key == service.key; });
    if (!known) {
      services.push_back(std::move(service));
    } else if (!std::exchange(twinLogged, true)) {
      log().Warn("%s %u Hz: %u-%u is there twice; the first one counts", modulationName(source),
                 frequency, service.key.major, service.key.minor);
    }
  };
  Service blank;
  blank.key.source = source;
  blank.key.frequency = frequency;
  if (tables.vct) {
    for (const VirtualChannel& channel : tables.vct->channels) {
      if (!isReceivable(channel, tables)) continue;
      Service service = blank;
      setNumber(service.key, channel.major, channel.minor);
      service.type = typeOf(channel.serviceType);
      service.sourceId = channel.sourceId;
      service.tsid = channel.tsid;
      service.programNumber = channel.programNumber;
      service.name = channel.name;
      service.streams = streamsOf(channel, tables);
      service.captions = captionsOf(channel.programNumber, tables);
      add(std::move(service));
    }
  } else if (tables.pat) {
    for (const auto& [program, streams] : tables.pmts) {
      Service service = blank;
      service.key.major = rfChannel(source, frequency);
      service.key.minor = program;
      service.type = typeOf(streams);
      service.tsid = tables.pat->tsid;
      service.programNumber = program;
      service.fromPmt = true;
      service.streams = streams;
      service.captions = captionsOf(program, tables);
      add(std::move(service));
    }
  }
  return services;
}

uint32_t sourceOfId(uint32_t inputSource) {
  switch (inputSource) {
    case 0:
    case AI_INPUT_TERRESTRIAL:
      return AI_INPUT_TERRESTRIAL;
    case 1:
    case AI_INPUT_CABLE:
      return AI_INPUT_CABLE;
    default:
      return 0;
  }
}

void copyRecord(const Service& service, AISRV_service_info& record) {
  const multiple_lang_t lent = record.name;
  record = {};
  record.service_id = {service.record, service.key.source};
  record.service_type = service.type;
  record.major = service.key.major;
  record.minor = service.key.minor;
  record.frequency = service.key.frequency;
  record.source_id = service.sourceId;
  record.modulation = modulationOf(service.key.source);
  record.AISRV_fav_group_ = service.favourites;
  record.AISRV_flags_ = service.flags;
  record.build_from_pmt = service.fromPmt ? 1 : 0;
  record.transport_stream_id = service.tsid;
  record.program_number = service.programNumber;
  record.name = {lent.text, 0, AI_TEXT_UTF16BE};
  if (!lent.text) return;
  const size_t length = std::min<size_t>(service.name.size(), lent.length) & ~size_t{1};
  std::memcpy(lent.text, service.name.data(), length);
  record.name.length = static_cast<uint16_t>(length);
}

}  // namespace atschost
