#include "receiver/tables/descriptors.h"

#include <algorithm>

#include "receiver/stream/transport.h"

namespace atschost {

bool copyLanguage(const uint8_t* code, char* language) {
  const auto isLetter = [](uint8_t c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; };
  if (!std::all_of(code, code + 3, isLetter)) return false;
  std::copy(code, code + 3, language);
  return true;
}

void addStream(std::vector<AISRV_pid_info>& streams, const AISRV_pid_info& stream) {
  const bool known = std::any_of(streams.begin(), streams.end(),
                                 [&](const AISRV_pid_info& s) { return s.pid == stream.pid; });
  if (!known && streams.size() < AISRV_MAX_PIDS) streams.push_back(stream);
}

void readServiceLocation(const uint8_t* data, size_t size, std::vector<AISRV_pid_info>& streams) {
  if (size < 3) return;
  // PCR_PID, number_elements, then stream_type, elementary_PID and language of each.
  const size_t count = std::min<size_t>(data[2], (size - 3) / 6);
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* element = data + 3 + 6 * i;
    AISRV_pid_info stream{};
    stream.stream_type = element[0];
    stream.pid = read13(element + 1);
    copyLanguage(element + 3, stream.language);
    addStream(streams, stream);
  }
}

void readIso639Language(const uint8_t* data, size_t size, AISRV_pid_info& stream) {
  // Code and audio_type, repeated.
  if (size >= 4) copyLanguage(data, stream.language);
  if (size >= 8) copyLanguage(data + 4, stream.second_language);
}

void readAc3Audio(const uint8_t* data, size_t size, AISRV_pid_info& stream) {
  if (size < 3) return;
  const uint8_t bsmod = data[2] >> 5;
  const bool dualMono = (data[2] >> 1 & 0x0F) == 0;
  switch (bsmod) {
    case 0:  // complete main
      stream.audio_kind = AISRV_AUDIO_MAIN;
      break;
    case 2:
      stream.audio_kind = AISRV_AUDIO_DESCRIPTION;
      break;
    case 3:
      stream.audio_kind = AISRV_AUDIO_HEARING_IMPAIRED;
      break;
    default:  // music and effects, dialogue, commentary, emergency, voice over
      stream.audio_kind = AISRV_AUDIO_OTHER;
      break;
  }
  // full_svc has a meaning for associated services only: a main service is always complete.
  if (bsmod >= 2) stream.full_mix = data[2] & 1;

  size_t at = dualMono ? 5 : 4;  // past langcod, and langcod2 of the second mono channel
  if (at >= size) return;
  if (bsmod < 2) {
    stream.main_audio_number = data[at] >> 5;
  } else {
    stream.description_mask = data[at];
  }
  if (++at >= size) return;
  at += 1u + (data[at] >> 1);  // textlen and the text
  if (at >= size) return;
  const bool hasLanguage = data[at] & 0x80;
  if (hasLanguage && size - at >= 4 && stream.language[0] == 0)
    copyLanguage(data + at + 1, stream.language);
}

}  // namespace atschost
