#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace psipmux {

enum class Medium { kAir, kCable };

/// An invalid lineup. what() is a single line with file, path of the key and reason.
class LineupError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct LanguageText {
  std::string language;  ///< ISO 639-2, three letters
  std::u16string text;
};

/// A text in one or more languages, in the order of transmission. May be empty.
using Text = std::vector<LanguageText>;

/// An elementary stream of a service. The fields from bsmod on are fields of the AC-3 audio stream
/// descriptor (A/52 Annex A), used for AC-3 only.
struct Stream {
  uint8_t type = 0;  ///< stream_type, ISO 13818-1 and A/53
  uint16_t pid = 0;
  std::string language;  ///< ISO 639-2, three letters, or empty
  uint8_t bsmod = 0;
  bool fullSvc = true;
  uint8_t mainid = 0;          ///< sent if bsmod is below 2 (main service)
  uint8_t asvcflags = 0;       ///< sent otherwise: a bit for each associated main service
  bool dualMono = false;       ///< two mono channels (1+1), the first in `language`
  std::string secondLanguage;  ///< of the second channel, or empty
};

constexpr uint8_t kStreamTypeAc3 = 0x81;

/// The rating of a programme in one rating region: an entry of the content_advisory_descriptor
/// (A/65 6.9.3).
struct Rating {
  struct Dimension {
    uint8_t index = 0;  ///< in the RRT of the region
    uint8_t value = 0;
  };
  uint8_t region = 0;
  std::vector<Dimension> dimensions;
  Text text;  ///< rating_description_text
};

/// An entry of the caption_service_descriptor (A/65 6.9.2).
struct CaptionService {
  std::string language;
  bool digital = true;
  uint8_t number = 0;  ///< caption_service_number, or line21_field when not digital
  bool easyReader = false;
  bool wide = false;
};

struct Programme {
  uint32_t duration = 0;  ///< seconds
  Text title;
  Text description;  ///< no ETM if empty
  std::vector<Rating> ratings;
  std::vector<CaptionService> captions;
  std::vector<uint8_t> genres;  ///< categorical genre codes, A/65 6.9.13
};

/// A service: a program of the PAT and, in a channel with PSIP, a virtual channel of the VCT.
struct Service {
  uint16_t program = 0;
  uint16_t pmtPid = 0;
  uint8_t version = 0;          ///< version_number of the PMT
  std::u16string name;          ///< at most 7 code units
  std::u16string extendedName;  ///< no descriptor if empty
  uint16_t major = 0;           ///< encoded; A/65 6.3.2 for one-part numbers
  uint16_t minor = 0;
  uint16_t sourceId = 0;
  uint8_t serviceType = 0;  ///< A/65 6.3.1
  bool hidden = false;
  bool hideGuide = false;
  bool sld = true;  ///< send a service location descriptor
  std::vector<Stream> streams;
  std::vector<CaptionService> captions;  ///< in the PMT
  /// Repeated endlessly; the first programme starts `guideOffset` seconds after
  /// 1980-01-06T00:00:00Z. If empty, the service is not in the guide.
  std::vector<Programme> programmes;
  uint32_t guideOffset = 0;
  bool ratingInGuide = true;
  bool ratingInPmt = false;  ///< of the current programme
};

/// A cable emergency alert, SCTE 18 5.
struct Alert {
  struct Location {
    uint8_t state = 0;        ///< FIPS code; 0: the whole country
    uint8_t subdivision = 0;  ///< of the county; 0: the whole county
    uint16_t county = 0;      ///< FIPS code; 0: the whole state
  };
  uint8_t sequence = 0;
  uint16_t eventId = 0;
  std::string originator;  ///< 3 characters
  std::string eventCode;
  Text activationText;
  Text text;
  uint8_t timeRemaining = 0;  ///< seconds; 0: indefinite
  uint16_t duration = 0;      ///< minutes; 0: indefinite
  uint8_t priority = 0;
  std::vector<Location> locations;
};

/// A rating region table, A/65 6.4.
struct RatingRegion {
  struct Value {
    Text abbreviation;
    Text rating;
  };
  struct Dimension {
    Text name;
    bool graduated = false;
    std::vector<Value> values;
  };
  uint8_t region = 0;
  uint8_t version = 0;
  Text name;
  std::vector<Dimension> dimensions;
};

/// One transport stream.
struct Channel {
  uint32_t frequency = 0;  ///< centre frequency, Hz
  uint16_t tsid = 0;
  uint8_t version = 0;       ///< version_number of the PAT and VCT
  uint8_t guideVersion = 0;  ///< version_number of the MGT, EIT and ETT
  bool psip = true;          ///< false: PAT and PMT only
  uint8_t modulation = 0;    ///< modulation_mode, A/65 6.3.1
  std::vector<Service> services;
  std::vector<Alert> alerts;
};

/// The daylight_savings field of the STT, A/65 Annex A.
struct DaylightSaving {
  bool status = false;
  uint8_t dayOfMonth = 0;
  uint8_t hour = 0;
};

struct Lineup {
  Medium medium = Medium::kAir;
  std::optional<DaylightSaving> daylightSaving;  ///< default: usDaylightSaving()
  unsigned guideHours = 0;                       ///< length of the guide
  std::vector<RatingRegion> ratingRegions;
  std::vector<Channel> channels;
};

/// Parses and checks a lineup. `file` is its name in errors. Throws LineupError for the first
/// error.
Lineup parseLineup(const std::string& json, const std::string& file);

/// Reads a lineup from a file. Throws LineupError if the file cannot be read or is invalid.
Lineup readLineup(const std::string& file);

}  // namespace psipmux
