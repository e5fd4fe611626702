// OSAL: the set's operating-system layer.
#ifndef ATSC_PLATFORM_OSAL_H_
#define ATSC_PLATFORM_OSAL_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t OSAL_timer_id;  // 0 is never a valid timer

// Handles a timer on the OSAL's timer thread. `arg` is the argument of OSAL_timer_enable(), `value`
// is 0.
typedef void (*OSAL_timer_handler)(void* arg, int value);

// Creates an idle timer. A timer of type 2 fires once each time it is enabled. Returns 0 on
// success.
int OSAL_timer_create(const char* name, int type, OSAL_timer_id* timer);

// Starts the timer; restarts a running timer. Any thread. Returns 0 on success, another value for
// an unknown timer.
int OSAL_timer_enable(OSAL_timer_id timer, OSAL_timer_handler handler, void* arg,
                      uint32_t milliseconds);

// Writes a diagnostic dump of the middleware's semaphores to its log. Any thread.
void OSAL_display_sem_details_(void);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_OSAL_H_
