// AICN: the middleware's channel module (what is playing, from which source).
//
// All functions may be called from any thread; those that return a status return 0 on success.
#ifndef ATSC_PLATFORM_AICN_H_
#define ATSC_PLATFORM_AICN_H_

#include <aisrv.h>

#ifdef __cplusplus
extern "C" {
#endif

// Copies the current service; the record lends a name buffer. Fails when there is none. One that is
// taken from the list while it plays stays the current one until it ends.
int AICN_get_current(AISRV_service_info* record);

// The current input source, AI_INPUT_*.
int AICN_get_curr_input_source(void);

// The play state, for diagnostics: 0 stopped, 1 playing.
int AICN_get_chan_state(void);

// 1: services are not played by themselves (while a scan runs); 0: they are.
int AICN_set_skip_play_srv(int skip);

// What the tuner is set to, AI_INPUT_*.
int AICN_get_tuner_mode(void);

// 1: the lock of the current service was changed by the application, which knows that a viewer is
// there: the change alone does not interrupt playing. 0: it may.
int AICN_set_play_from_ap(int from_application);

// Preferred audio languages.
enum { AICN_LANGUAGE_ENGLISH = 0, AICN_LANGUAGE_FRENCH = 1, AICN_LANGUAGE_SPANISH = 2 };

// The first and the second preferred audio language, AICN_LANGUAGE_*. A service without a track
// that was chosen for it (AIFW_change_audio) plays its first complete main track in the first
// language, else in the second one, else in any; without a main track its first one. Kept by
// AIUP_store_all(). Setting fails on an unknown language and takes effect at once.
int AICN_set_pref_aud_lang(int32_t language);
int AICN_get_pref_aud_lang(int32_t* language);
int AICN_set_sec_pref_aud_lang(int32_t language);
int AICN_get_sec_pref_aud_lang(int32_t* language);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AICN_H_
