// The values of a channel table's row and the SQL texts that write them.
#include "atsc_service_db_channel_row.h"

#include <algorithm>
#include <cstring>

#include "atsc_text.h"

ATSC_LOGGER("atsc/service/db")

namespace atsc {

namespace {

bool isAudio(uint8_t streamType) {
  constexpr std::array<uint8_t, 6> types{0x03, 0x04, 0x0F, 0x11, 0x81, 0x87};
  return std::find(types.begin(), types.end(), streamType) != types.end();
}

bool isVideo(uint8_t streamType) {
  constexpr std::array<uint8_t, 4> types{0x01, 0x02, 0x24, 0x80};
  return std::find(types.begin(), types.end(), streamType) != types.end();
}

// Appends "_AD" and the main audio that an audio description describes.
void appendDescription(sqlString& text, const AISRV_pid_info& pid) {
  text << "_AD";
  if (pid.description_mask != 0) text << __builtin_ctz(pid.description_mask);
  if (pid.full_mix != 0) text << "FULL";
  text << "_MAIN" << pid.main_audio_number;
}

void appendAudio(sqlString& text, const AISRV_pid_info& pid) {
  const char(&language)[3] = pid.language[0] != '\0' ? pid.language : pid.second_language;
  text << pid.pid << "_" << std::string_view(language, strnlen(language, sizeof language)) << "_"
       << pid.stream_type;
  if (pid.audio_kind == AISRV_AUDIO_DESCRIPTION) appendDescription(text, pid);
  text++;
}

void appendVideo(sqlString& text, const AISRV_pid_info& pid) {
  text << pid.pid << "_" << pid.stream_type;
  text++;
}

StreamTexts readStreams(const AISRV_service_info& service, const LogPlace& place) {
  AISRV_pid_details details{};
  if (ATSC_CALL_AT(place, AISRV_get_pid_details, &service, &details) != 0) return {};
  StreamTexts streams;
  sqlString audio;
  sqlString video;
  const uint32_t count = std::min<uint32_t>(details.count, AISRV_MAX_PIDS);
  for (uint32_t i = 0; i < count; ++i) {
    const AISRV_pid_info& pid = details.pids[i];
    if (isAudio(pid.stream_type)) {
      appendAudio(audio, pid);
      ++streams.audio_count;
    } else if (isVideo(pid.stream_type)) {
      appendVideo(video, pid);
      ++streams.video_count;
    }
  }
  streams.audio_pid = audio.str();
  streams.video_pid = video.str();
  return streams;
}

}  // namespace

std::string channelKey(const AISRV_service_info& service) {
  sqlString key;
  key << service.major << "-" << service.minor << "-" << service.frequency;
  return key.str();
}

namespace {

std::string nameOf(const AISRV_service_info& service) {
  if (service.name.text == nullptr || service.name.length == 0) return "EMPTY";
  return textToUTF8(service.name, kNameSlot);
}

const char* serviceTypeName(uint32_t type) {
  switch (type) {
    case AISRV_TYPE_RADIO:
      return "RADIO";
    case AISRV_TYPE_DATA:
      return "DATA";
    default:
      return "TV";
  }
}

}  // namespace

ServiceTexts readTexts(const AISRV_service_info& service, const LogPlace& place) {
  return {readStreams(service, place), nameOf(service), channelKey(service)};
}

ChannelRow channelRow(const AISRV_service_info& service, const ServiceTexts& texts,
                      uint32_t update_time) {
  const StreamTexts& streams = texts.streams;
  ChannelRow row;
  row[kName] = texts.name;
  row[kBuildFromPmt] = int64_t{service.build_from_pmt == 1};
  row[kMajor] = service.major;
  row[kMinor] = service.minor;
  row[kServiceRecord] = service.service_id.service_rec;
  row[kSourceId] = static_cast<uint16_t>(service.source_id);
  row[kFrequency] = service.frequency;
  row[kServiceType] = serviceTypeName(service.service_type);
  row[kServiceFlag] = service.AISRV_flags_;
  row[kFavouriteGroup] = service.AISRV_fav_group_;
  row[kServiceDelete] = service.service_delete;
  row[kAudioPid] = streams.audio_pid;
  row[kVideoPid] = streams.video_pid;
  row[kAudioCount] = streams.audio_count;
  row[kVideoCount] = streams.video_count;
  row[kUpdateTime] = update_time;
  row[kChannelKey] = texts.key;
  row[kTransportStreamId] = service.transport_stream_id;
  row[kTunerType] = service.modulation == AI_MODULATION_8VSB ? "VSB" : "QAM";
  return row;
}

std::string insertPattern() {
  std::string columns;
  std::string values;
  for (const ChannelColumn column : kInsertOrder) {
    if (!columns.empty()) columns += ',';
    columns += kColumnNames[column];
    values += values.empty() ? "?" : ",?";
  }
  return " ( " + columns + ")VALUES (" + values + ")";
}

std::string updatePattern() {
  std::string pattern;
  for (const ChannelColumn column : kUpdateOrder) {
    if (!pattern.empty()) pattern += ',';
    pattern.append(" ").append(kColumnNames[column]).append("=?");
  }
  return pattern;
}

void appendFilled(sqlString& text, std::string_view pattern, const ColumnOrder& order,
                  const ChannelRow& row) {
  for (const ChannelColumn column : order) {
    const size_t value = pattern.find('?');
    text << pattern.substr(0, value);
    appendValue(text, row[column]);
    pattern.remove_prefix(value + 1);
  }
  text << pattern;
}

}  // namespace atsc
