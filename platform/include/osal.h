// OSAL: the set's operating-system layer.
#ifndef ATSC_PLATFORM_OSAL_H_
#define ATSC_PLATFORM_OSAL_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t OSAL_timer_id;  // 0 is never a valid timer

// Called on the OSAL's timer thread with the two values given to OSAL_timer_enable (value is 0).
typedef void (*OSAL_timer_handler)(void* arg, int value);

// Creates an idle timer. Type 2: fires once for each enable. Returns 0 on success.
int OSAL_timer_create(const char* name, int type, OSAL_timer_id* timer);

// Starts the timer; a timer that is running starts anew. Any thread. Returns 0 on success, another
// value for an unknown timer.
int OSAL_timer_enable(OSAL_timer_id timer, OSAL_timer_handler handler, void* arg,
                      uint32_t milliseconds);

// Writes a diagnostic dump of the middleware's semaphores to its log. Any thread.
void OSAL_display_sem_details_(void);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_OSAL_H_
