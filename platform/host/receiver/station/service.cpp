#include "receiver/station/service.h"

#include <algorithm>
#include <utility>

#include "middleware_types.h"
#include "receiver/log.h"
#include "receiver/station/audio.h"
#include "receiver/stream/frequency_plan.h"

namespace atschost {
namespace {

// A/65 table 6.7.
uint32_t type_of(uint8_t service_type) {
  switch (service_type) {
    case 0x03:  // audio only
      return AISRV_TYPE_RADIO;
    case 0x04:  // data only
    case 0x05:  // software download
      return AISRV_TYPE_DATA;
    default:
      return AISRV_TYPE_TV;
  }
}

uint32_t type_of(const std::vector<AISRV_pid_info>& streams) {
  if (std::any_of(streams.begin(), streams.end(), is_video)) return AISRV_TYPE_TV;
  if (std::any_of(streams.begin(), streams.end(), is_audio)) return AISRV_TYPE_RADIO;
  return AISRV_TYPE_DATA;
}

// Cable operators may use one number instead of two (A/65 6.3.2).
void set_number(ServiceKey& key, uint16_t major, uint16_t minor) {
  const bool one_part = key.source == AI_INPUT_CABLE && (major & 0x3F0) == 0x3F0;
  key.major = one_part ? static_cast<uint16_t>(((major & 0x00F) << 10) + minor) : major;
  key.minor = one_part ? 0 : minor;
}

// Whether a channel is carried here, in a form that this receiver can play, for viewers.
bool is_receivable(const VirtualChannel& channel, const CarrierTables& tables) {
  constexpr uint8_t kAnalogModulation = 0x01;
  constexpr uint8_t kAnalogService = 0x01;
  if (channel.hidden || channel.out_of_band) return false;
  if (channel.modulation_mode == kAnalogModulation || channel.service_type == kAnalogService)
    return false;
  if (channel.program_number == 0 || channel.program_number == 0xFFFF) return false;  // inactive
  // Entries may describe channels of other carriers. Where VCT and PAT disagree on this carrier's
  // transport stream id, either is as good as the other.
  return channel.tsid == tables.vct->tsid || (tables.pat && channel.tsid == tables.pat->tsid);
}

// The service location descriptor names the streams; details of audio are the PMT's.
std::vector<AISRV_pid_info> streams_of(const VirtualChannel& channel, const CarrierTables& tables) {
  const auto pmt = tables.pmts.find(channel.program_number);
  if (pmt == tables.pmts.end()) return channel.streams;
  if (!channel.has_location) return pmt->second;
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

// What the PMT announces, if it is here.
std::vector<CaptionService> captions_of(uint16_t program, const CarrierTables& tables) {
  const auto found = tables.captions.find(program);
  return found == tables.captions.end() ? std::vector<CaptionService>() : found->second;
}

}  // namespace

std::vector<Service> build_services(const CarrierTables& tables, uint32_t source,
                                    uint32_t frequency) {
  std::vector<Service> services;
  bool twin_told = false;
  const auto add = [&](Service service) {
    const bool known = std::any_of(services.begin(), services.end(),
                                   [&](const Service& s) { return s.key == service.key; });
    if (!known) {
      services.push_back(std::move(service));
    } else if (!std::exchange(twin_told, true)) {
      log().Warn("%s %u Hz: %u-%u is there twice; the first one counts", modulation_name(source),
                 frequency, service.key.major, service.key.minor);
    }
  };
  Service blank;
  blank.key.source = source;
  blank.key.frequency = frequency;
  if (tables.vct) {
    for (const VirtualChannel& channel : tables.vct->channels) {
      if (!is_receivable(channel, tables)) continue;
      Service service = blank;
      set_number(service.key, channel.major, channel.minor);
      service.type = type_of(channel.service_type);
      service.source_id = channel.source_id;
      service.tsid = channel.tsid;
      service.program_number = channel.program_number;
      service.name = channel.name;
      service.streams = streams_of(channel, tables);
      service.captions = captions_of(channel.program_number, tables);
      add(std::move(service));
    }
  } else if (tables.pat) {
    for (const auto& [program, streams] : tables.pmts) {
      Service service = blank;
      service.key.major = rf_channel(source, frequency);
      service.key.minor = program;
      service.type = type_of(streams);
      service.tsid = tables.pat->tsid;
      service.program_number = program;
      service.from_pmt = true;
      service.streams = streams;
      service.captions = captions_of(program, tables);
      add(std::move(service));
    }
  }
  return services;
}

}  // namespace atschost
