// The guide of one stream: its events (EIT) and their descriptions (ETT).
#ifndef ATSC_HOST_RECEIVER_TABLES_GUIDE_TABLES_H_
#define ATSC_HOST_RECEIVER_TABLES_GUIDE_TABLES_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "receiver/tables/caption_services.h"
#include "receiver/tables/content_advisory.h"

namespace atschost {

// An event of an EIT (A/65 6.5). Texts are UTF-16BE.
struct GuideEvent {
  uint16_t eventId = 0;   // 14 bits
  uint32_t start = 0;     // GPS seconds
  uint32_t duration = 0;  // seconds
  std::string title;
  std::string rating;        // the rating to show, such as "TV-14-D-V"; empty: not rated
  std::string otherRatings;  // all ratings if there are several; else empty
  std::vector<Advisory> advisories;
  std::vector<uint8_t> genres;
  bool captions = false;  // captionServices is not empty
  std::vector<CaptionService> captionServices;

  bool operator==(const GuideEvent& other) const;
};

// Instance k of a table covers the k-th segment of 3 hours (A/65 6.2).
struct GuideTables {
  using Eit = std::vector<GuideEvent>;            // in the table's order
  using Texts = std::map<uint32_t, std::string>;  // by ETM_id, UTF-16BE

  // By instance and source id; only whole tables of the current version. Never null. Copies of the
  // tables share the events.
  std::map<std::pair<uint8_t, uint16_t>, std::shared_ptr<const Eit>> eits;
  std::map<uint8_t, Texts> etts;  // by instance
  // Whether an MGT was received. The lists below, ascending, are empty without an MGT.
  bool mgtSeen = false;
  // Instances that the MGT announces.
  std::vector<uint8_t> announcedEits;
  std::vector<uint8_t> announcedEtts;
  // Announced instances that were received as far as the station sends them.
  std::vector<uint8_t> settledEits;
  std::vector<uint8_t> settledEtts;
};

// Limits of the guide of one carrier, several times what the fullest station sends. Tables beyond
// them are dropped.
constexpr size_t kMaxGuideSize = 16 << 20;  // as sizeOf() estimates
constexpr size_t kMaxGuideSources = 1000;   // in an EIT instance

// Estimated size of a node of a container, bytes.
constexpr size_t kNodeSize = 64;

// Estimate the bytes that events or a description take in memory.
size_t sizeOf(const GuideTables::Eit& events);
size_t sizeOfText(const std::string& text);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_GUIDE_TABLES_H_
