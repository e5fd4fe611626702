// Types, rules and terms of the middleware's modules.
//
// Rules. They hold for all functions of the modules unless the comment of a function or of its
// header says otherwise.
//   - A function that returns a status returns 0 on success and another value on failure.
//   - Any thread may call any function.
//   - No function throws.
//   - The library's threads call the modules until the process has ended: a module does not destroy
//     its data when main() has returned. Threads of a module call the library: they end before the
//     library's globals are destroyed.
//
// Terms. The comments of the modules describe a change with these words.
//   - Atomic: a call that fails leaves the settings, the list or the record that the function
//     changes as they were.
//   - Applied: the change is in force when the call returns.
//   - Stored: the call keeps the change for the next start, without a further call. Where that is
//     not possible, the call fails; an applied change stays in force then.
//   - Deferred: the call starts the work and does not wait for its end. The events or the callback
//     that the comment names report the progress.
//
// Records. The library and the closed middleware exchange records by address: fixed-width fields,
// little-endian, natural alignment, layout fixed on 32-bit targets. ATSC_LAYOUT_OFFSET and
// ATSC_LAYOUT_SIZE check a layout at compile time. The caller owns a record: a module keeps no
// pointer to a record after its function has returned. It does not clear a record that contains the
// buffers of texts, because the caller has set their addresses and lengths. Of some records that
// the middleware fills only the first fields are known. Such a record ends with `room`, space for
// the further fields that the middleware may write. The library chose the size of `room` and does
// not read it.
#ifndef ATSC_PLATFORM_MIDDLEWARE_TYPES_H_
#define ATSC_PLATFORM_MIDDLEWARE_TYPES_H_

#include <stddef.h>
#include <stdint.h>

// Check the byte offset of a field and the size of a record where pointers have 4 bytes. On other
// targets (a PC) the layout may be any, if it is the same for the library and the middleware.
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

// Text encodings of multiple_lang_t. Every other value is single-byte text: the library copies such
// a text of the middleware unchanged, up to a NUL, into databases and replies. It must be UTF-8.
enum { AI_TEXT_UTF16BE = 1 };

// Reference to a text. The middleware owns a text that it passes to the library. Where the caller
// provides a text buffer, the buffer is zeroed and `length` holds its capacity; the middleware
// writes at most that many bytes, sets `length` to the number of bytes written and `encoding` to
// their encoding.
typedef struct multiple_lang_t {
  uint8_t* text;
  uint16_t length;   // bytes
  int32_t encoding;  // AI_TEXT_UTF16BE, else single-byte text
} multiple_lang_t;
ATSC_LAYOUT_OFFSET(multiple_lang_t, length, 4);
ATSC_LAYOUT_OFFSET(multiple_lang_t, encoding, 8);
ATSC_LAYOUT_SIZE(multiple_lang_t, 12);

#endif  // ATSC_PLATFORM_MIDDLEWARE_TYPES_H_
