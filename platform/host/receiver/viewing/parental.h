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

// The result of comparing a programme's ratings with the settings.
struct RatingVerdict {
  bool blocked = false;
  bool rated = false;  // there is a rating to compare with a limit
  // The first blocked rating, if the programme is rated and blocked.
  uint8_t region = 0;
  uint8_t dimension = 0;
  uint8_t value = 0;
  // AIPC_UNRATED_* of a programme that is not rated.
  int32_t group = AIPC_UNRATED_NO_RATING;
};

using KnownRegions = std::bitset<256>;  // by number

struct ParentalSettings {
  AIPC_parental_details details = {0, AIPC_REGION_US, 0, 0, 0, 0};
  std::map<uint8_t, AIPC_dime_t> limits;  // by region, as they were given
  std::array<int32_t, AIPC_UNRATED_GROUPS> unratedGroups{};

  bool operator==(const ParentalSettings& other) const;
  // Returns whether both settings block the same programmes.
  bool blocksAs(const ParentalSettings& other) const;

  bool enabled() const { return details.enabled == 1; }
  // Returns the limits of a region, all 0 if there are none.
  AIPC_dime_t limitsOf(uint32_t region) const;
  void setLimits(const AIPC_dime_t& given);

  // Compares ratings with the limits. Ratings of a region count if its table is known; regions 1
  // and 2 are always known. Blocks nothing while the settings are not enabled.
  RatingVerdict check(const std::vector<Advisory>& advisories, const KnownRegions& known) const;

 private:
  bool hasLimitsOf(const ParentalSettings& other) const;
};

// Returns whether a region can have the number, 1 to 255.
constexpr bool isRegion(int64_t number) { return number >= 1 && number <= UINT8_MAX; }

// See AIPC_rating_encode() and AIPC_drrt_rating_encode().
bool encodeRating(AIPC_dime_t& limits, uint8_t dimension, uint8_t value, bool block);
bool encodeDownloadable(AIPC_dime_t& limits, const RatingRegion& region, uint8_t dimension,
                        uint8_t value, bool block);

// Converts a rating text; country and system as in AIPC_check_rating(). Returns nullopt for an
// unknown text.
std::optional<Advisory> advisoryOfText(uint32_t country, uint32_t system, std::string_view text);

// Stores the settings. Any thread. Only sync() waits for the disk.
class Parental {
 public:
  // Loads the settings of an earlier run.
  explicit Parental(const std::string& stateFolder);

  // Returns the current settings. The object does not change later.
  std::shared_ptr<const ParentalSettings> settings() const;

  // kMadeDifference: different programmes may be blocked now.
  enum class Change { kRefused, kNone, kMade, kMadeDifference };
  // Changes the settings. `edit` returns false to change nothing, and must not call this object.
  Change change(const std::function<bool(ParentalSettings&)>& edit);

  // Copies the current settings for the next sync().
  void store();
  // Writes the copy of store(), if not yet written. Returns false on failure; the next call
  // retries.
  bool sync();

 private:
  mutable Mutex mutex_;
  std::shared_ptr<const ParentalSettings> settings_ GUARDED_BY(mutex_);
  // Null if there is nothing to write.
  std::shared_ptr<const ParentalSettings> toStore_ GUARDED_BY(mutex_);

  Mutex fileMutex_;
  StateFile file_ GUARDED_BY(fileMutex_);
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_VIEWING_PARENTAL_H_
