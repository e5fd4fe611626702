// Texts of the middleware as UTF-8.
#ifndef ATSC_ATSC_TEXT_H_
#define ATSC_ATSC_TEXT_H_

#include <middleware_types.h>

#include <string>

namespace atsc {

// The slot of a service name as Utili_allocSrvMem() lends it.
constexpr uint32_t kNameSlot = 50;
// How much of the slot a middleware may fill.
constexpr uint16_t kNameCapacity = 40;

// The text in UTF-8: converted when it is UTF-16BE, else its bytes up to the first NUL. At most
// `capacity` bytes are believed, whatever the record says.
std::string textToUTF8(const multiple_lang_t& text, uint32_t capacity);
// The same into a string that is used again.
void textToUTF8(const multiple_lang_t& text, uint32_t capacity, std::string& converted);

}  // namespace atsc

#endif  // ATSC_ATSC_TEXT_H_
