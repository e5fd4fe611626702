// Texts of the middleware as UTF-8, and JSON values as texts.
#ifndef ATSC_ATSC_TEXT_H_
#define ATSC_ATSC_TEXT_H_

#include <aisrv.h>
#include <json/value.h>
#include <middleware_types.h>

#include <string>

namespace atsc {

// Size of a name buffer of Utili_allocSrvMem(), a slot.
constexpr uint32_t kNameSlot = 50;
// Bytes of the slot that the middleware may write.
constexpr uint16_t kNameCapacity = 40;

// Returns the text in UTF-8. Converts UTF-16BE; returns "", with the log lines of the converters,
// when that fails. Returns other text unchanged up to the first NUL. Reads at most `capacity`
// bytes, even if the record declares more.
std::string textToUTF8(const multiple_lang_t& text, uint32_t capacity);
// Writes the text into a string and reuses its memory.
void textToUTF8(const multiple_lang_t& text, uint32_t capacity, std::string& converted);

// Returns the name of a service whose name buffer is a slot of Utili_allocSrvMem(). A name that is
// not UTF-16BE extends to the first NUL of the slot; its length is ignored. Does not read beyond
// the slot.
std::string nameInSlot(const AISRV_service_info& service);

// Returns the text of a reply or callback: the format of Json::StyledWriter, with unchanged bytes
// from 0x80. A NUL ends a text.
std::string jsonText(const Json::Value& value);

}  // namespace atsc

#endif  // ATSC_ATSC_TEXT_H_
