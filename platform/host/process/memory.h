// The memory of the process.
#ifndef ATSC_HOST_PROCESS_MEMORY_H_
#define ATSC_HOST_PROCESS_MEMORY_H_

namespace atschost {

// Returns freed memory to the system, also from between pieces that are in use. Takes time: for the
// end of a task that needed much. Any thread.
void giveBackMemory();

}  // namespace atschost

#endif  // ATSC_HOST_PROCESS_MEMORY_H_
