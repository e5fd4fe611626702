// AISRV: service list. The services on the air are constant data; settings hold which are listed.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include "aicn.h"
#include "aifw.h"
#include "rmgr.h"
#include "set.h"

namespace minimal {

namespace {

// Sorted by channel number within each input source.
constexpr Service kServices[] = {
    {1, AI_INPUT_TERRESTRIAL, 177000000, 7, 1, 0x701, 1, "HARBOR"},
    {2, AI_INPUT_TERRESTRIAL, 177000000, 7, 2, 0x702, 2, "HARBOR2"},
    {3, AI_INPUT_TERRESTRIAL, 189000000, 9, 1, 0x901, 1, "HILL"},
    {4, AI_INPUT_TERRESTRIAL, 189000000, 9, 2, 0x902, 2, "HILL-NW"},
    {5, AI_INPUT_CABLE, 57000000, 101, 0, 0x6501, 1, "CITY"},
    {6, AI_INPUT_CABLE, 63000000, 102, 0, 0x6601, 1, "SPORT"},
};

constexpr uint16_t kVideoPid = 0x31;  // of program 1; each further program adds 0x10

std::string key(const char* what, const Service& service) {
  return std::string(what) + "." + std::to_string(service.rec);
}

bool listed(const Service& service) { return setting(key("listed", service), 0) != 0; }

bool sourceIs(const Service& service, uint32_t inputSource) {
  // Records name input sources by 0 to 3, the services by 2 and 3.
  return inputSource <= 3 && service.inputSource == (inputSource | 2);
}

}  // namespace

std::vector<Carrier> carriers() {
  // Includes a channel without a carrier for each input source.
  return {
      {AI_INPUT_TERRESTRIAL, 7, 177000000}, {AI_INPUT_TERRESTRIAL, 8, 183000000},
      {AI_INPUT_TERRESTRIAL, 9, 189000000}, {AI_INPUT_CABLE, 2, 57000000},
      {AI_INPUT_CABLE, 3, 63000000},        {AI_INPUT_CABLE, 4, 69000000},
  };
}

std::vector<const Service*> listedServices(uint32_t inputSource) {
  std::vector<const Service*> found;
  for (const Service& service : kServices) {
    if (service.inputSource == inputSource && listed(service)) found.push_back(&service);
  }
  return found;
}

const Service* listedService(uint32_t rec, uint32_t inputSource) {
  for (const Service& service : kServices) {
    if (service.rec == rec && sourceIs(service, inputSource) && listed(service)) return &service;
  }
  return nullptr;
}

const Service* listedService(const AISRV_service_info* record) {
  return record == nullptr
             ? nullptr
             : listedService(record->service_id.service_rec, record->service_id.input_source);
}

uint32_t flagsOf(const Service& service) {
  return setting(key("flags", service), AISRV_FLAG_VISIBLE);
}

uint32_t listCarrier(const Carrier& carrier) {
  std::vector<Change> changes;
  for (const Service& service : kServices) {
    if (service.inputSource == carrier.inputSource && service.frequency == carrier.frequency) {
      changes.emplace_back(key("listed", service), 1);
    }
  }
  if (!changes.empty()) changeSettings(changes);
  return changes.size();
}

uint32_t modulationOf(uint32_t inputSource) {
  return inputSource == AI_INPUT_TERRESTRIAL ? AI_MODULATION_8VSB : AI_MODULATION_QAM;
}

void copyText(const char* text, multiple_lang_t* lent) {
  const size_t length =
      lent->text != nullptr ? std::min<size_t>(std::strlen(text), lent->length) : 0;
  if (length > 0) std::memcpy(lent->text, text, length);
  lent->length = static_cast<uint16_t>(length);
  lent->encoding = 0;
}

void fillRecord(const Service& service, AISRV_service_info* record) {
  const multiple_lang_t lent = record->name;
  *record = {};
  record->name = lent;
  record->service_id = {service.rec, service.inputSource};
  record->service_type = AISRV_TYPE_TV;
  record->major = service.major;
  record->minor = service.minor;
  record->frequency = service.frequency;
  record->source_id = service.sourceId;
  record->modulation = modulationOf(service.inputSource);
  record->AISRV_fav_group_ = setting(key("favourites", service), 0);
  record->AISRV_flags_ = flagsOf(service);
  record->transport_stream_id = static_cast<uint16_t>(service.frequency / 1000000);
  record->program_number = service.programNumber;
  copyText(service.name, &record->name);
}

}  // namespace minimal

using namespace minimal;

// Ignores the mask, as a viewer can select all services, and the filter.
int AISRV_get_total_services(uint32_t inputSource, uint32_t /*serviceMask*/,
                             const AISRV_query_filter* /*filter*/, uint32_t /*reserved*/,
                             uint32_t* count) {
  if (count == nullptr) return kFailure;
  *count = static_cast<uint32_t>(listedServices(inputSource).size());
  return kSuccess;
}

int AISRV_get_n_services(uint32_t inputSource, uint32_t /*serviceMask*/, uint32_t first,
                         const AISRV_query_filter* /*filter*/, uint32_t /*reserved1*/,
                         uint32_t /*reserved2*/, uint32_t* count, AISRV_service_info* records) {
  if (count == nullptr) return kFailure;
  if (*count == 0) return kSuccess;  // callers with an empty list pass no records
  if (records == nullptr) return kFailure;
  const auto services = listedServices(inputSource);
  uint32_t copied = 0;
  for (size_t i = first; i < services.size() && copied < *count; ++i) {
    fillRecord(*services[i], &records[copied++]);
  }
  *count = copied;
  return kSuccess;
}

int AISRV_get_pid_details(const AISRV_service_info* record, AISRV_pid_details* details) {
  const Service* const service = listedService(record);
  if (service == nullptr || details == nullptr) return kFailure;
  *details = {};
  details->count = 3;
  const auto pid = static_cast<uint16_t>(kVideoPid + 0x10 * (service->programNumber - 1));
  details->pids[0].stream_type = 0x02;
  details->pids[0].pid = pid;
  constexpr const char* kLanguages[] = {"eng", "spa"};
  for (uint8_t i = 0; i < 2; ++i) {
    AISRV_pid_info& audio = details->pids[1 + i];
    audio.stream_type = 0x81;
    audio.audio_kind = AISRV_AUDIO_MAIN;
    audio.pid = static_cast<uint16_t>(pid + 3 + i);
    std::memcpy(audio.language, kLanguages[i], sizeof audio.language);
    audio.main_audio_number = i;
  }
  return kSuccess;
}

// Reports no content advisories.
int AISRV_get_CAD_list(const AISRV_service_info* service, uint8_t* count, uint8_t* /*regions*/) {
  if (listedService(service) == nullptr || count == nullptr) return kFailure;
  *count = 0;
  return kSuccess;
}

// Reports "not blocked".
int AISRV_get_rating_status(const AISRV_service_info* service, uint32_t* status) {
  if (listedService(service) == nullptr || status == nullptr) return kFailure;
  *status = 0;
  return kSuccess;
}

// Changes of the list are stored at once.
int AISRV_sync_to_database(void) { return kSuccess; }

int AISRV_reset_db(uint32_t inputSource) {
  std::vector<Change> changes;
  for (const Service& service : kServices) {
    if (service.inputSource != inputSource) continue;
    changes.emplace_back(key("listed", service), 0);
    changes.emplace_back(key("flags", service), AISRV_FLAG_VISIBLE);
    changes.emplace_back(key("favourites", service), 0);
  }
  if (!changeSettings(changes, Unstored::kAllOrNothing)) return kFailure;
  AISRV_service_info playing = {};
  if (AICN_get_current(&playing) == kSuccess && playing.service_id.input_source == inputSource) {
    endPlaying();
  }
  return kSuccess;
}

// Only modifies services. Adding a service fails, as the platform cannot tune unknown channels.
int AIFW_modify_service(uint32_t operation, const AISRV_service_info* record) {
  const Service* const service = listedService(record);
  if (operation != AIFW_SERVICE_MODIFY || service == nullptr) return kFailure;
  return changeSettings({{key("flags", *service), record->AISRV_flags_},
                         {key("favourites", *service), record->AISRV_fav_group_}},
                        Unstored::kAllOrNothing)
             ? kSuccess
             : kFailure;
}

// Reads the settings again, after the file was replaced.
int RMGRReload(void) { return reloadSettings() ? kSuccess : kFailure; }
