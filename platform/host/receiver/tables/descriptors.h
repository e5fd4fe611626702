// Descriptors of elementary streams. Each reader takes the content of a descriptor, without tag and
// length, and ignores fields that are cut off.
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

// Copies an ISO 639-2 code of three letters. Returns false, and copies nothing, if `code` has other
// characters.
bool copyLanguage(const uint8_t* code, char* language);

// Appends the elementary streams of a service_location_descriptor (A/65 6.9.5).
void readServiceLocation(const uint8_t* data, size_t size, std::vector<AISRV_pid_info>& streams);

// Takes the first two languages of an ISO_639_language_descriptor (ISO/IEC 13818-1 2.6.18).
void readIso639Language(const uint8_t* data, size_t size, AISRV_pid_info& stream);

// Takes the kind of audio and the numbers of the main services of an AC-3 audio_stream_descriptor
// (A/52 Annex A), and its language if the stream has none yet.
void readAc3Audio(const uint8_t* data, size_t size, AISRV_pid_info& stream);

// Appends a stream unless the list has its PID or is full (AISRV_MAX_PIDS).
void addStream(std::vector<AISRV_pid_info>& streams, const AISRV_pid_info& stream);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_DESCRIPTORS_H_
