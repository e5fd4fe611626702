// Descriptors that describe elementary streams. Each reader takes the descriptor's content (what
// follows descriptor_length) and uses no more of it than is there.
#ifndef ATSC_HOST_RECEIVER_TABLES_DESCRIPTORS_H_
#define ATSC_HOST_RECEIVER_TABLES_DESCRIPTORS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "aisrv.h"

namespace atschost {

constexpr uint8_t kIso639LanguageTag = 0x0A;
constexpr uint8_t kAc3AudioTag = 0x81;
constexpr uint8_t kServiceLocationTag = 0xA1;

// Copies an ISO 639-2 code. Codes are three letters; anything else counts as absent: false, nothing
// copied.
bool copyLanguage(const uint8_t* code, char* language);

// service_location_descriptor (A/65 6.9.5): appends its elementary streams.
void readServiceLocation(const uint8_t* data, size_t size, std::vector<AISRV_pid_info>& streams);

// ISO_639_language_descriptor (ISO/IEC 13818-1 2.6.18): the first two languages.
void readIso639Language(const uint8_t* data, size_t size, AISRV_pid_info& stream);

// AC-3 audio_stream_descriptor (A/52 Annex A): kind of audio, numbers of the main services; its
// language where the stream has none yet.
void readAc3Audio(const uint8_t* data, size_t size, AISRV_pid_info& stream);

// Appends a stream unless its PID is there already or the list is full (AISRV_MAX_PIDS).
void addStream(std::vector<AISRV_pid_info>& streams, const AISRV_pid_info& stream);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_DESCRIPTORS_H_
