// Parental control: the settings, and what they block.
#ifndef ATSC_HOST_RECEIVER_VIEWING_PARENTAL_H_
#define ATSC_HOST_RECEIVER_VIEWING_PARENTAL_H_

#include <array>
#include <bitset>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "aipc.h"
#include "process/mutex.h"
#include "receiver/station/state_file.h"
#include "receiver/tables/content_advisory.h"
#include "receiver/tables/rating_region.h"

namespace atschost {

// What the ratings of a programme come to.
struct RatingVerdict {
  bool blocked = false;
  bool rated = false;  // there is a rating to compare with a limit
  // Of one that is rated and blocked, the first rating that is.
  uint8_t region = 0;
  uint8_t dimension = 0;
  uint8_t value = 0;
  // AIPC_UNRATED_* of one that is not rated.
  int32_t group = AIPC_UNRATED_NO_RATING;
};

using KnownRegions = std::bitset<256>;  // by number

struct ParentalSettings {
  AIPC_parental_details details = {0, AIPC_REGION_US, 0, 0, 0, 0};
  std::map<uint8_t, AIPC_dime_t> limits;  // by region, as they were given
  std::array<int32_t, AIPC_UNRATED_GROUPS> unratedGroups{};

  bool operator==(const ParentalSettings& other) const;
  // Whether the same programmes are blocked, whatever they are.
  bool blocksAs(const ParentalSettings& other) const;

  bool enabled() const { return details.enabled == 1; }
  // All 0 where there are none.
  AIPC_dime_t limitsOf(uint32_t region) const;
  void setLimits(const AIPC_dime_t& given);

  // The ratings of a region count when its table is known; regions 1 and 2 always do. Nothing is
  // blocked while the settings are not enabled.
  RatingVerdict check(const std::vector<Advisory>& advisories, const KnownRegions& known) const;

 private:
  bool hasLimitsOf(const ParentalSettings& other) const;
};

// The number that a region can have, 1 to 255.
constexpr bool isRegion(int64_t number) { return number >= 1 && number <= UINT8_MAX; }

// As AIPC_rating_encode and AIPC_drrt_rating_encode.
bool encodeRating(AIPC_dime_t& limits, uint8_t dimension, uint8_t value, bool block);
bool encodeDownloadable(AIPC_dime_t& limits, const RatingRegion& region, uint8_t dimension,
                        uint8_t value, bool block);

// Country and system as AIPC_check_rating numbers them. None for a text that is not known.
std::optional<Advisory> advisoryOfText(uint32_t country, uint32_t system, std::string_view text);

// Keeps the settings. Any thread; only sync() waits for the disk.
class Parental {
 public:
  // Loads what was stored in an earlier run.
  explicit Parental(const std::string& stateFolder);

  // As they are now; they stay as they are while held.
  std::shared_ptr<const ParentalSettings> settings() const;

  // The last one: other programmes may be blocked than before.
  enum class Change { kRefused, kNone, kMade, kMadeDifference };
  // `edit` returns false to change nothing; it must not call back.
  Change change(const std::function<bool(ParentalSettings&)>& edit);

  // Takes the settings as they are now, for the next sync().
  void store();
  // Writes what store() took, if that was not written yet. False on failure; it is tried again.
  bool sync();

 private:
  mutable Mutex mutex_;
  std::shared_ptr<const ParentalSettings> settings_ GUARDED_BY(mutex_);
  // Null: nothing is to be written.
  std::shared_ptr<const ParentalSettings> toStore_ GUARDED_BY(mutex_);

  Mutex fileMutex_;
  StateFile file_ GUARDED_BY(fileMutex_);
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_VIEWING_PARENTAL_H_
