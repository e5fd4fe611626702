// AICN: the middleware's channel module (current service, input source, preferred languages).
//
// Rules and terms: middleware_types.h.
#ifndef ATSC_PLATFORM_AICN_H_
#define ATSC_PLATFORM_AICN_H_

#include <aisrv.h>

#ifdef __cplusplus
extern "C" {
#endif

// Copies the current service into a record with a name buffer. Fails when there is no current
// service. A service that is removed from the list while it plays stays the current service until
// it stops playing.
int AICN_get_current(AISRV_service_info* record);

// Returns the current input source, AI_INPUT_*.
int AICN_get_curr_input_source(void);

// Returns the play state, for diagnostics: 0 stopped, 1 playing.
int AICN_get_chan_state(void);

// Controls automatic playing. `skip` 1: the middleware plays no service on its own (while a scan
// runs). 0: it may.
int AICN_set_skip_play_srv(int skip);

// Returns the mode of the tuner, AI_INPUT_*.
int AICN_get_tuner_mode(void);

// Sets the origin of a change of the current service's lock. `from_application` 1: the application,
// which knows that a viewer is present: a lock set now applies when the service plays next. 0:
// another origin: a lock set now may close the playing service immediately.
int AICN_set_play_from_ap(int from_application);

// Preferred audio languages.
enum { AICN_LANGUAGE_ENGLISH = 0, AICN_LANGUAGE_FRENCH = 1, AICN_LANGUAGE_SPANISH = 2 };

// Set and return the first and the second preferred audio language, AICN_LANGUAGE_*. A service for
// which no track was chosen (AIFW_change_audio) plays its first complete main track in the first
// language, else in the second language, else in any language; without a main track it plays its
// first track. Applied; AIUP_store_all() keeps the setting. Setting fails for an unknown language.
int AICN_set_pref_aud_lang(int32_t language);
int AICN_get_pref_aud_lang(int32_t* language);
int AICN_set_sec_pref_aud_lang(int32_t language);
int AICN_get_sec_pref_aud_lang(int32_t* language);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AICN_H_
