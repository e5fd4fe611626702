// Texts of the middleware as UTF-8, and JSON values as texts.
#ifndef ATSC_ATSC_TEXT_H_
#define ATSC_ATSC_TEXT_H_

#include <aisrv.h>
#include <json/value.h>
#include <middleware_types.h>

#include <string>

namespace atsc {

// The slot of a service name as Utili_allocSrvMem() lends it.
constexpr uint32_t kNameSlot = 50;
// How much of the slot a middleware may fill.
constexpr uint16_t kNameCapacity = 40;

// The text in UTF-8: converted when it is UTF-16BE, "" with the converters' log lines when it
// cannot be; else its bytes up to the first NUL. At most `capacity` bytes are believed, whatever
// the record says.
std::string textToUTF8(const multiple_lang_t& text, uint32_t capacity);
// The same into a string that is used again.
void textToUTF8(const multiple_lang_t& text, uint32_t capacity, std::string& converted);

// The name of a service whose name lies in a slot of Utili_allocSrvMem(): one that is not UTF-16BE
// is the slot up to its NUL, whatever its length says. Nothing behind the slot is read.
std::string nameInSlot(const AISRV_service_info& service);

// A reply or callback as it is sent: laid out by Json::StyledWriter, but with every byte from 0x80
// as it stands in the value. A NUL ends a text.
std::string jsonText(Json::Value value);

}  // namespace atsc

#endif  // ATSC_ATSC_TEXT_H_
