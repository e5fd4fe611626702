// Objects that are never destroyed.
#ifndef ATSC_HOST_PROCESS_IMMORTAL_H_
#define ATSC_HOST_PROCESS_IMMORTAL_H_

#include <utility>

namespace atschost {

// Creates an object that threads may still use while the process exits. Keep the reference in a
// static variable of a function: `static Clock& clock = immortal<Clock>();`
template <typename Type, typename... Arguments>
Type& immortal(Arguments&&... arguments) {
  return *new Type(std::forward<Arguments>(arguments)...);
}

}  // namespace atschost

#endif  // ATSC_HOST_PROCESS_IMMORTAL_H_
