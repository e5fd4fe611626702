// AIPT: the middleware's play task.
#ifndef ATSC_PLATFORM_AIPT_H_
#define ATSC_PLATFORM_AIPT_H_

#ifdef __cplusplus
extern "C" {
#endif

// Returns the index status of play path `path` (0): 0 idle, 1 ready, other values until the
// previous service has been closed down. Any thread. Returns 0 on success.
int AIPT_get_index_status(int* status, int path);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIPT_H_
