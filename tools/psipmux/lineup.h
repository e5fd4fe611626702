#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace psipmux {

enum class Medium { kAir, kCable };

/// A lineup that cannot be used. what() is one line: the file, the key with its path, the reason.
class LineupError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An elementary stream of a service. The last four fields are those of the AC-3 audio stream
/// descriptor (A/52 Annex A) and are used for AC-3 only.
struct Stream {
  uint8_t type = 0;  ///< stream_type, ISO 13818-1 and A/53
  uint16_t pid = 0;
  std::string language;  ///< ISO 639-2, three letters, or empty
  uint8_t bsmod = 0;
  bool full_svc = true;
  uint8_t mainid = 0;     ///< sent when bsmod is below 2 (a main service)
  uint8_t asvcflags = 0;  ///< sent otherwise: one bit for each main service it belongs to
};

constexpr uint8_t kStreamTypeAc3 = 0x81;

/// A service: one program of the PAT and, in a channel with PSIP, one virtual channel of the VCT.
struct Service {
  uint16_t program = 0;
  uint16_t pmt_pid = 0;
  uint8_t version = 0;           ///< version_number of the PMT
  std::u16string name;           ///< at most 7 code units
  std::u16string extended_name;  ///< no descriptor when empty
  uint16_t major = 0;            ///< as sent; A/65 6.3.2 for one-part numbers
  uint16_t minor = 0;
  uint16_t source_id = 0;
  uint8_t service_type = 0;  ///< A/65 6.3.1
  bool hidden = false;
  bool hide_guide = false;
  bool sld = true;  ///< with a service location descriptor
  std::vector<Stream> streams;
};

/// One transport stream.
struct Channel {
  uint32_t frequency = 0;  ///< centre frequency, Hz
  uint16_t tsid = 0;
  uint8_t version = 0;     ///< version_number of the PAT, MGT and VCT
  bool psip = true;        ///< false: PAT and PMT only
  uint8_t modulation = 0;  ///< modulation_mode, A/65 6.3.1
  std::vector<Service> services;
};

/// The daylight_savings field of the STT, A/65 Annex A.
struct DaylightSaving {
  bool status = false;
  uint8_t day_of_month = 0;
  uint8_t hour = 0;
};

struct Lineup {
  Medium medium = Medium::kAir;
  DaylightSaving daylight_saving;
  std::vector<Channel> channels;
};

/// Parses and checks a lineup; `file` names it in errors. Throws LineupError for the first fault.
Lineup ParseLineup(const std::string& json, const std::string& file);

/// Reads a lineup from a file. Throws LineupError, also when the file cannot be read.
Lineup ReadLineup(const std::string& file);

}  // namespace psipmux
