// AIPC: the middleware's parental control: rating regions, limits, checks.
//
// All functions may be called from any thread. They return 0, or another value on failure, unless
// they say otherwise. Settings changed by them are in force at once and survive a restart after
// AIPC_store_all(), AIUP_store_all() and AIUP_sync(), in this order.
#ifndef ATSC_PLATFORM_AIPC_H_
#define ATSC_PLATFORM_AIPC_H_

#include <middleware_types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { AIPC_REGION_US = 1, AIPC_REGION_CANADA = 2 };

enum { AIPC_MAX_DIMENSIONS = 64, AIPC_MAX_LEVELS = 15 };

// The limits of one rating region. A level is the lowest rating value that is blocked, as the
// region's table (A/65 6.4) numbers the values of its dimension, 0 when none is; a content flag is
// 1 when programmes that carry it are blocked.
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
  // Other regions: 1 where a value of a dimension is blocked.
  uint8_t downloadable[AIPC_MAX_DIMENSIONS][AIPC_MAX_LEVELS];
} AIPC_dime_t;
ATSC_LAYOUT_OFFSET(AIPC_dime_t, us_tv, 4);
ATSC_LAYOUT_OFFSET(AIPC_dime_t, us_mpaa, 28);
ATSC_LAYOUT_OFFSET(AIPC_dime_t, canada_english, 32);
ATSC_LAYOUT_OFFSET(AIPC_dime_t, downloadable, 40);
ATSC_LAYOUT_SIZE(AIPC_dime_t, 1000);

// The rating region in force, as AIFW_get_curr_region() fills it.
typedef struct AIPC_region_list_t {
  uint32_t region;
  uint32_t room[255];  // a size of ours
} AIPC_region_list_t;

// Parental control as a whole.
typedef struct AIPC_parental_details {
  int32_t preset_mode;   // a product's own choice of limits, kept as it is given
  int32_t region;        // rating region in force
  uint8_t region_value;  // kept as it is given
  uint8_t rated;         // kept as it is given
  uint8_t enabled;       // 1: limits are applied
  uint8_t reserved;
} AIPC_parental_details;
ATSC_LAYOUT_OFFSET(AIPC_parental_details, region_value, 8);
ATSC_LAYOUT_OFFSET(AIPC_parental_details, enabled, 10);
ATSC_LAYOUT_SIZE(AIPC_parental_details, 12);

// A rating region. The name's buffer of AIPC_TEXT_SIZE bytes is lent.
typedef struct AIPC_RRT_details {
  uint32_t region;
  multiple_lang_t name;
} AIPC_RRT_details;
ATSC_LAYOUT_OFFSET(AIPC_RRT_details, name, 4);
ATSC_LAYOUT_SIZE(AIPC_RRT_details, 16);

// The texts of one rating value; both buffers of AIPC_TEXT_SIZE bytes are lent.
typedef struct AIPC_rating_value_text {
  multiple_lang_t abbreviation;
  multiple_lang_t text;
} AIPC_rating_value_text;
ATSC_LAYOUT_SIZE(AIPC_rating_value_text, 24);

enum { AIPC_TEXT_SIZE = 512 };

// Queries of the rating region tables as they are known for an input (AIIN_input_t.handle): the
// last one received of each region, also in an earlier run; before the first one, for regions 1 and
// 2, what CEA-766 says. They fail for an unknown input, region, dimension or value.

// The number of known regions and their numbers, ascending. `count` holds the capacity of `regions`
// and becomes the number.
int AIPC_get_RRT_regions(uint32_t input, uint8_t* count, uint8_t* regions);
int AIPC_get_RRT_details_with_version(uint32_t input, uint8_t region, AIPC_RRT_details* details,
                                      uint8_t* version);
int AIPC_num_of_dimension(uint32_t input, uint8_t region, uint8_t* count);
// `levels`: the number of values; `graduated`: 1 when each value includes those below.
int AIPC_dimension_name_grad(uint32_t input, uint8_t region, uint8_t dimension,
                             multiple_lang_t* name, uint8_t* levels, uint8_t* graduated);
int AIPC_get_rating_value_text(uint32_t input, uint8_t region, uint8_t dimension, uint8_t value,
                               AIPC_rating_value_text* texts);

// Begins to look for rating region tables on all listed carriers.
int AIPC_collect_RRT(void);

// Fills the limits of `rating->region`; all 0 for a region without limits.
int AIPC_retreive_rating(AIPC_dime_t* rating);

// Sets the limits of `rating.region`.
int AIPC_store_rating(AIPC_dime_t rating);

// Changes a record, not the settings: blocks (`block` 1) or frees a value of a dimension of
// `rating->region`. In the age scales of regions 1 and 2, and elsewhere where the dimension is
// graduated, blocking takes the values above with it, freeing those below. The first function is
// for regions 1 and 2, whose dimensions and values are numbered as CEA-766 does, the second one for
// the downloadable tables of all other regions. They fail, with nothing changed, on another region,
// where the region's table has no such value, and on a value that is no limit: those without a name
// and of regions 1 and 2 those that no viewer is to be kept from ("None", "N/A", exempt) or that
// have a group of their own ("NR"). Nor is fantasy violence freed while TV-Y7 is blocked.
int AIPC_rating_encode(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block);
int AIPC_drrt_rating_encode(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block);

int AIPC_get_parental_details(AIPC_parental_details* details);
int AIPC_set_parental_details(const AIPC_parental_details* details);

// Groups of programmes that have no rating to compare with a limit.
enum {
  AIPC_UNRATED_NO_RATING = 0,  // no rating at all: no content advisory, or one that says nothing
  AIPC_UNRATED_US_MPAA = 1,    // region 1: a film that is not rated (MPAA "NR")
  AIPC_UNRATED_CANADA = 2,     // region 2: exempt ("E")
  AIPC_UNRATED_GROUPS = 3,
};
// `block` 1: programmes of `group` are blocked. Fails on an unknown group.
int AIPC_set_rating_status_unrated_groups(int block, int32_t group);
int AIPC_get_rating_status_unrated_groups(int32_t* block, int32_t group);

// Remove all limits and blocked groups. The first leaves the details as they are, the second brings
// them to those of a new set: region 1, disabled, all else 0.
int AIPC_reset_user_ratings(void);
int AIPC_set_default_settings(void);

// Hands the settings to the store (AIUP).
int AIPC_store_all(void);

// Verdicts of a rating check. AIPC_BLOCKED_BY_STATUS: blocked if the service announces content
// advisories (AISRV_get_CAD_list) and its rating status (AISRV_get_rating_status) is 1.
// AIPC_UNRATED: the programme belongs to an unrated group; blocked if the rating status is 1. Any
// other value: allowed.
enum { AIPC_BLOCKED = 11, AIPC_BLOCKED_BY_STATUS = 12, AIPC_UNRATED = 13 };

// Checks a rating text (single-byte, NUL-terminated, at most `length` bytes, such as "TV-14-D-V")
// against the limits. Country 1: system 1 TV, 2 MPAA; country 2: system 3 English, 4 French.
// Returns AIPC_BLOCKED, 0 for allowed, -1 for a text or system that is not known.
int AIPC_check_rating(uint32_t country, uint32_t system, const multiple_lang_t* rating);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIPC_H_
