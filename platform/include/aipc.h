// AIPC: the middleware's parental control: rating regions, limits, checks.
// Rules and terms: middleware_types.h. Changes of settings are applied. They survive a restart
// after AIPC_store_all(), AIUP_store_all() and AIUP_sync(), in this order.
#ifndef ATSC_PLATFORM_AIPC_H_
#define ATSC_PLATFORM_AIPC_H_

#include <middleware_types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { AIPC_REGION_US = 1, AIPC_REGION_CANADA = 2 };

enum { AIPC_MAX_DIMENSIONS = 64, AIPC_MAX_LEVELS = 15 };

// The limits of one rating region. A level is the lowest rating value that is blocked, in the
// numbering of the values of its dimension in the region's table (A/65 6.4); 0 when no value is
// blocked. A content flag is 1 when programmes with this content are blocked.
typedef struct AIPC_dime_t {
  uint32_t region;
  int32_t us_tv;        // region 1, "Entire Audience": 2 TV-G to 5 TV-MA
  int32_t us_dialogue;  // content flags
  int32_t us_language;
  int32_t us_sex;
  int32_t us_violence;
  int32_t us_children;     // region 1, "Children": 1 TV-Y, 2 TV-Y7; 3: TV-Y7 with fantasy violence
  int32_t us_mpaa;         // region 1, "MPAA": 2 G to 7 X
  int32_t canada_english;  // region 2: 1 C to 6 18+
  int32_t canada_french;   // region 2: 1 G to 5 18 ans+
  // Other regions, [dimension][value]: 1 when the value is blocked.
  uint8_t downloadable[AIPC_MAX_DIMENSIONS][AIPC_MAX_LEVELS];
} AIPC_dime_t;
ATSC_LAYOUT_OFFSET(AIPC_dime_t, us_tv, 4);
ATSC_LAYOUT_OFFSET(AIPC_dime_t, us_mpaa, 28);
ATSC_LAYOUT_OFFSET(AIPC_dime_t, canada_english, 32);
ATSC_LAYOUT_OFFSET(AIPC_dime_t, downloadable, 40);
ATSC_LAYOUT_SIZE(AIPC_dime_t, 1000);

// The rating region in force, as returned by AIFW_get_curr_region().
typedef struct AIPC_region_list_t {
  uint32_t region;
  uint32_t room[255];  // space for further fields
} AIPC_region_list_t;

// Parental control as a whole.
typedef struct AIPC_parental_details {
  int32_t preset_mode;   // a product's own choice of limits, kept unchanged
  int32_t region;        // rating region in force
  uint8_t region_value;  // kept unchanged
  uint8_t rated;         // kept unchanged
  uint8_t enabled;       // 1: limits are applied
  uint8_t reserved;
} AIPC_parental_details;
ATSC_LAYOUT_OFFSET(AIPC_parental_details, region_value, 8);
ATSC_LAYOUT_OFFSET(AIPC_parental_details, enabled, 10);
ATSC_LAYOUT_SIZE(AIPC_parental_details, 12);

// A rating region. The caller provides the buffer of the name, AIPC_TEXT_SIZE bytes.
typedef struct AIPC_RRT_details {
  uint32_t region;
  multiple_lang_t name;
} AIPC_RRT_details;
ATSC_LAYOUT_OFFSET(AIPC_RRT_details, name, 4);
ATSC_LAYOUT_SIZE(AIPC_RRT_details, 16);

// The texts of one rating value. The caller provides both buffers, AIPC_TEXT_SIZE bytes each.
typedef struct AIPC_rating_value_text {
  multiple_lang_t abbreviation;
  multiple_lang_t text;
} AIPC_rating_value_text;
ATSC_LAYOUT_SIZE(AIPC_rating_value_text, 24);

enum { AIPC_TEXT_SIZE = 512 };

// The following functions return the rating region tables that are known for an input
// (AIIN_input_t.handle): the last received table of each region, from an earlier run too. Before a
// table of region 1 or 2 was received, the table of CEA-766 counts. The functions fail for an
// unknown input, region, dimension or value.

// Returns the numbers of the known regions in ascending order. `count` holds the capacity of
// `regions` and is set to the number of regions.
int AIPC_get_RRT_regions(uint32_t input, uint8_t* count, uint8_t* regions);
int AIPC_get_RRT_details_with_version(uint32_t input, uint8_t region, AIPC_RRT_details* details,
                                      uint8_t* version);
int AIPC_num_of_dimension(uint32_t input, uint8_t region, uint8_t* count);
// `levels` is set to the number of values, `graduated` to 1 when each value includes the values
// below it.
int AIPC_dimension_name_grad(uint32_t input, uint8_t region, uint8_t dimension,
                             multiple_lang_t* name, uint8_t* levels, uint8_t* graduated);
int AIPC_get_rating_value_text(uint32_t input, uint8_t region, uint8_t dimension, uint8_t value,
                               AIPC_rating_value_text* texts);

// Searches all listed carriers for rating region tables. Deferred: AFW_RRT_UPDATE and
// AFW_RRT_DOWNLOAD_UPDATE report the tables (aifw.h).
int AIPC_collect_RRT(void);

// Returns the limits of `rating->region`; all are 0 for a region without limits.
int AIPC_retreive_rating(AIPC_dime_t* rating);

// Sets the limits of `rating.region`.
int AIPC_store_rating(AIPC_dime_t rating);

// Change a record, not the settings: block (`block` 1) or unblock a value of a dimension of
// `rating->region`. In the age scales of regions 1 and 2, and in graduated dimensions of other
// regions, blocking a value also blocks the values above it, and unblocking a value also unblocks
// the values below it. AIPC_rating_encode() is for regions 1 and 2, with the dimensions and values
// in the numbering of CEA-766; AIPC_drrt_rating_encode() is for the downloadable tables of all
// other regions. Atomic. The functions fail for another region, for a value that the region's table
// does not have, and for a value that is not a limit: a value without a name; in regions 1 and 2
// also a value that blocks nobody ("None", "N/A", exempt), or that belongs to an unrated group
// ("NR"). They also fail to unblock fantasy violence while TV-Y7 is blocked.
int AIPC_rating_encode(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block);
int AIPC_drrt_rating_encode(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block);

int AIPC_get_parental_details(AIPC_parental_details* details);
int AIPC_set_parental_details(const AIPC_parental_details* details);

// Groups of programmes without a rating that can be compared with a limit.
enum {
  AIPC_UNRATED_NO_RATING = 0,  // no rating at all: no content advisory, or an empty one
  AIPC_UNRATED_US_MPAA = 1,    // region 1: a film that is not rated (MPAA "NR")
  AIPC_UNRATED_CANADA = 2,     // region 2: exempt ("E")
  AIPC_UNRATED_GROUPS = 3,
};
// Set and return whether programmes of `group` are blocked (`block` 1). Fail for an unknown group.
int AIPC_set_rating_status_unrated_groups(int block, int32_t group);
int AIPC_get_rating_status_unrated_groups(int32_t* block, int32_t group);

// Remove all limits and unblock all groups. AIPC_reset_user_ratings() does not change the details.
// AIPC_set_default_settings() resets the details to those of a new set: region 1, disabled, all
// other fields 0.
int AIPC_reset_user_ratings(void);
int AIPC_set_default_settings(void);

// Passes the settings to the store (AIUP).
int AIPC_store_all(void);

// Verdicts of a rating check. AIPC_BLOCKED_BY_STATUS: the programme is blocked if the service
// announces content advisories (AISRV_get_CAD_list) and its rating status (AISRV_get_rating_status)
// is 1. AIPC_UNRATED: the programme belongs to an unrated group and is blocked if the rating status
// is 1. Any other value: the programme is allowed.
enum { AIPC_BLOCKED = 11, AIPC_BLOCKED_BY_STATUS = 12, AIPC_UNRATED = 13 };

// Checks a rating text (single-byte, NUL-terminated, at most `length` bytes, such as "TV-14-D-V")
// against the limits. Country 1: system 1 TV, 2 MPAA; country 2: system 3 English, 4 French.
// Returns AIPC_BLOCKED, 0 for allowed, -1 for an unknown text or system.
int AIPC_check_rating(uint32_t country, uint32_t system, const multiple_lang_t* rating);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIPC_H_
