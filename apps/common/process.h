// What a program that runs until a signal needs of its process.
#ifndef ATSC_APPS_COMMON_PROCESS_H_
#define ATSC_APPS_COMMON_PROCESS_H_

namespace apps {

// Lets no other user access the files that the program creates, keeps the heap in one piece, and
// survives readers of the output that exit. From now on SIGTERM and SIGINT only end waitForStop().
// Called once, first in main().
void prepareProcess();

// Returns when SIGTERM or SIGINT has arrived, also before the call. Main thread.
void waitForStop();

}  // namespace apps

#endif  // ATSC_APPS_COMMON_PROCESS_H_
