// AICC: the middleware's closed captions.
#ifndef ATSC_PLATFORM_AICC_H_
#define ATSC_PLATFORM_AICC_H_

#include <aisrv.h>

#ifdef __cplusplus
extern "C" {
#endif

// Origins of captions.
enum {
  AICC_INPUT_DIGITAL = 0,  // digital television closed captioning (CEA-708)
  AICC_INPUT_LINE21 = 1,   // line 21 (CEA-608)
};

enum { AICC_ASPECT_4_3 = 0, AICC_ASPECT_16_9 = 1 };

enum { AICC_MAX_SERVICES = 16 };

// One caption service of the caption service descriptor (A/65 6.9.2).
typedef struct AICC_cc_service {
  uint8_t service_id;    // digital: caption_service_number, 1 to 63; line 21: field 1 or 2
  char language[3];      // ISO 639-2 code; the first byte is 0 when absent
  uint32_t easy_reader;  // 1: made for beginning readers
  uint32_t reserved_8;
  uint32_t reserved_12;
  uint32_t reserved_16;
  int32_t input_type;  // AICC_INPUT_*
  uint32_t reserved_24;
  int32_t aspect_ratio;  // AICC_ASPECT_*
} AICC_cc_service;
ATSC_LAYOUT_OFFSET(AICC_cc_service, input_type, 20);
ATSC_LAYOUT_OFFSET(AICC_cc_service, aspect_ratio, 28);
ATSC_LAYOUT_SIZE(AICC_cc_service, 32);

typedef struct AICC_cc_service_data {
  uint8_t count;  // at most AICC_MAX_SERVICES
  uint8_t reserved[3];
  AICC_cc_service services[AICC_MAX_SERVICES];
} AICC_cc_service_data;
ATSC_LAYOUT_OFFSET(AICC_cc_service_data, services, 4);
ATSC_LAYOUT_SIZE(AICC_cc_service_data, 516);

// Reads the caption services of the current programme of the service that `service->service_id`
// names: from the programme's guide entry, else from the PMT of the service. The caller provides a
// zeroed record. Play path `path` is 0. Returns 0 also when there are no caption services. Fails
// for a service that is not listed.
int AICC_get_cc_service_data(uint32_t path, const AISRV_service_info* service,
                             AICC_cc_service_data* data);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AICC_H_
