// Types shared by the middleware's modules.
//
// Records are exchanged with the closed middleware by address: fixed-width fields, little-endian,
// natural alignment, layout fixed on 32-bit targets. ATSC_LAYOUT pins a layout at compile time. Of
// some records that the middleware fills only the first fields are known: a `room` behind them, of
// a size that is ours, is for what else it writes. The library does not look at it.
//
// No function throws. The library's threads call the modules until the process is gone: what a
// module needs is not destroyed when main() has returned. Its own threads end before that, as they
// call the library.
#ifndef ATSC_PLATFORM_MIDDLEWARE_TYPES_H_
#define ATSC_PLATFORM_MIDDLEWARE_TYPES_H_

#include <stddef.h>
#include <stdint.h>

// Byte offset of a field and size of a record where pointers are 4 bytes; other targets (a PC) only
// have to agree with themselves.
#ifdef __cplusplus
#define ATSC_LAYOUT_OFFSET(type, field, offset)                          \
  static_assert(sizeof(void*) != 4 || offsetof(type, field) == (offset), \
                #type "." #field " must be at byte " #offset)
#define ATSC_LAYOUT_SIZE(type, size) \
  static_assert(sizeof(void*) != 4 || sizeof(type) == (size), #type " must have " #size " bytes")
#else
#define ATSC_LAYOUT_OFFSET(type, field, offset)                           \
  _Static_assert(sizeof(void*) != 4 || offsetof(type, field) == (offset), \
                 #type "." #field " must be at byte " #offset)
#define ATSC_LAYOUT_SIZE(type, size) \
  _Static_assert(sizeof(void*) != 4 || sizeof(type) == (size), #type " must have " #size " bytes")
#endif

// Input sources.
enum {
  AI_INPUT_TERRESTRIAL = 2,  // 8-VSB from the antenna ("VSB")
  AI_INPUT_CABLE = 3,        // QAM from the cable ("QAM")
};

// Modulation codes (also the bits of a band mask).
enum {
  AI_MODULATION_8VSB = 0x40,
  AI_MODULATION_QAM = 0x400,
};

// Text encodings of multiple_lang_t; every other value is single-byte text. What the middleware
// hands out so reaches the databases and replies as it is, up to a NUL: it has to be UTF-8 then.
enum { AI_TEXT_UTF16BE = 1 };

// Reference to a text. A text that the middleware hands out stays the middleware's. A buffer that
// the caller lends is zeroed, with its capacity in `length`; the middleware writes at most that
// many bytes, sets `length` to the bytes written and `encoding` to what they are.
typedef struct multiple_lang_t {
  uint8_t* text;
  uint16_t length;   // bytes
  int32_t encoding;  // AI_TEXT_UTF16BE, else single-byte text
} multiple_lang_t;
ATSC_LAYOUT_OFFSET(multiple_lang_t, length, 4);
ATSC_LAYOUT_OFFSET(multiple_lang_t, encoding, 8);
ATSC_LAYOUT_SIZE(multiple_lang_t, 12);

#endif  // ATSC_PLATFORM_MIDDLEWARE_TYPES_H_
