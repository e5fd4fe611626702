// Transport streams for the receiver. The first byte selects the format of the rest, packets of a
// stream or a list of sections, and the parts that receive it. A file of packets is also an input.
#include <stdlib.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "aicc.h"
#include "aicn.h"
#include "aics.h"
#include "aiec.h"
#include "aifw.h"
#include "air_folder.h"
#include "aist.h"
#include "arrivals.h"
#include "atsc_host.h"
#include "broadcast.h"
#include "input.h"
#include "packets.h"
#include "receiver/station/guide.h"
#include "receiver/tuners/carrier.h"

using namespace atschost;

namespace {

[[maybe_unused]] const bool kQuiet = setenv("SPDLOG_LEVEL", "off", 0) == 0;

constexpr uint32_t kFrequency = 509'000'000;

using broadcast::Bytes;
using broadcast::bytesOf;

// Returns a text that lends a buffer of exactly its size.
multiple_lang_t lend(Bytes& buffer) {
  return {buffer.data(), static_cast<uint16_t>(buffer.size()), 0};
}

void checkText(const multiple_lang_t& text, size_t lent) {
  fuzz::require(text.length <= lent && text.length % 2 == 0, "a text in its buffer");
}

// Lets `fill` write a text.
template <typename Fill>
void takeText(size_t size, Fill fill) {
  Bytes buffer(size);
  multiple_lang_t text = lend(buffer);
  fill(&text);
  checkText(text, size);
}

// Reads a list of sections: PID, table_id, table_id_extension, the byte with version_number,
// section_number, last_section_number, length of the body, body.
Bytes packetsOfSections(fuzz::Input& input) {
  psipmux::PacketWriter stream;
  while (input.left() > 0) {
    const uint16_t pid = input.value<uint16_t>() & 0x1FFF;
    const uint8_t tableId = input.byte();
    const uint16_t extension = input.value<uint16_t>();
    const uint8_t version = input.byte(), number = input.byte(), last = input.byte();
    const std::string body =
        input.bytes(std::min<size_t>(input.value<uint16_t>(), kMaxSectionSize - 12));
    Bytes section = psipmux::longSection(tableId, extension, 0, number, last, bytesOf(body));
    section[1] |= 0x40;
    section[5] = version;
    stream.write(pid, broadcast::sealed(section));
  }
  return stream.take();
}

// The folder with the carrier's file, created on first use.
const AirFolder& air() {
  static const AirFolder folder(TemporaryFolder::memory());
  [[maybe_unused]] static const bool used = [] {
    setenv("ATSC_HOST_STATE", (folder.path() / "state").c_str(), 1);
    ATSC_host_set_air(folder.path().c_str());
    ATSC_host_set_dwell(0);
    ATSC_host_set_fast(1);
    return true;
  }();
  return folder;
}

// Reads the tables of the carrier, like a scan, and the guide.
void decode(uint32_t source, const Bytes& stream) {
  air().write(source, kFrequency, stream);
  Air folder;
  folder.setFolder(air().path());
  Clock clock;
  const CarrierResult result = readCarrier(folder, clock, source, kFrequency, false, true);
  fuzz::require(result.known, "a carrier that is read");
  Guide().update(source, kFrequency, result.guide, result.gpsUtcOffset);
}

// What the receiver reports from its threads, which run until the process ends.
Arrivals<int>& scanned = *new Arrivals<int>;
Arrivals<int>& played = *new Arrivals<int>;

void onEvent(AFW_event_t event, void* data) {
  if (data && (event == AFW_EAS_START_BLOCKING || event == AFW_EAS_START_NON_BLOCKING)) {
    const auto* text = static_cast<const multiple_lang_t*>(data);
    (void)std::string(reinterpret_cast<const char*>(text->text), text->length);
  }
  if (event == AFW_CHANNEL_PLAY_SUCCESS || event == AFW_CHANNEL_PLAY_FAILURE) played.add(event);
  uint8_t priority = 0;
  AIFW_get_EAS_priority(&priority);
  const auto update = std::make_unique<AIFW_event_update_data>();
  if (event == AFW_EPG_UPDATE) AIFW_get_event_update_data(update.get());
}

void scan(uint32_t source) {
  AICS_search_request request{};
  request.search_type = AICS_SEARCH_MANUAL;
  request.always_2 = 2;
  request.frequency = kFrequency;
  request.source = static_cast<uint8_t>(source);
  const auto report = [](void*, int state) {
    if (state == AICS_STATE_OVER) scanned.add(state);
  };
  // The last scan can still run when it reports its end.
  while (AICS_start_search(&request, report) != 0) std::this_thread::yield();
  fuzz::require(!scanned.take(1).empty(), "a scan that ends");
}

void readEvents(const AISRV_service_info& service) {
  uint16_t total = 0;
  fuzz::require(AIEC_get_total_events(&service, &total) == 0, "a guide of a listed service");
  const uint16_t count = std::min<uint16_t>(total, 64);
  std::vector<Bytes> names(count, Bytes(AIEC_NAME_SIZE)), ratings(count, Bytes(AIEC_RATING_SIZE));
  std::vector<AIEC_event_info> events(count);
  for (size_t i = 0; i < count; ++i) {
    events[i].name = lend(names[i]);
    events[i].rating = lend(ratings[i]);
  }
  uint16_t copied = 0;
  AIEC_get_first_n_events(&service, events.data(), count, &copied);
  events.resize(copied);
  for (const AIEC_event_info& event : events) {
    checkText(event.name, AIEC_NAME_SIZE);
    checkText(event.rating, AIEC_RATING_SIZE);
    fuzz::require(event.genre_count <= AIEC_MAX_GENRES, "genres");
    takeText(AIEC_DESCRIPTION_SIZE,
             [&](multiple_lang_t* text) { AIEC_get_event_description(&event.key, text); });
    takeText(AIEC_RATING_SIZE, [&](multiple_lang_t* text) {
      AIEC_get_multiple_event_rating_string(&event.key, text);
    });
  }
  if (copied == 0) return;
  const AIEC_event_key key = events[0].key;
  AIEC_get_next_n_events(&key, events.data(), 1, &copied, 1);
}

void readServices(uint32_t source) {
  constexpr size_t kNameSize = 13;  // less than the longest name
  const AISRV_query_filter filter{};
  uint32_t count = 0;
  AISRV_get_total_services(source, AISRV_SERVICE_MASK, &filter, 0, &count);
  std::vector<Bytes> names(count, Bytes(kNameSize));
  std::vector<AISRV_service_info> records(count);
  for (size_t i = 0; i < count; ++i) records[i].name = lend(names[i]);
  AISRV_get_n_services(source, AISRV_SERVICE_MASK, 0, &filter, 0, 0, &count, records.data());
  records.resize(count);
  for (const AISRV_service_info& record : records) {
    checkText(record.name, kNameSize);
    const auto pids = std::make_unique<AISRV_pid_details>();
    AISRV_get_pid_details(&record, pids.get());
    fuzz::require(pids->count <= AISRV_MAX_PIDS, "streams");
    const auto captions = std::make_unique<AICC_cc_service_data>();
    AICC_get_cc_service_data(0, &record, captions.get());
    fuzz::require(captions->count <= AICC_MAX_SERVICES, "caption services");
    uint8_t advisories = AISRV_MAX_ADVISORIES;
    uint8_t regions[AISRV_MAX_ADVISORIES];
    AISRV_get_CAD_list(&record, &advisories, regions);
    uint32_t status = 0;
    AISRV_get_rating_status(&record, &status);
    AIEC_check_rating(&record);
    readEvents(record);
  }
}

// Reads the regions and blocks all their values.
void readRegions() {
  uint8_t count = 255;
  uint8_t regions[255];
  AIPC_get_RRT_regions(1, &count, regions);
  for (size_t i = 0; i < count; ++i) {
    AIPC_dime_t limits{};
    limits.region = regions[i];
    takeText(AIPC_TEXT_SIZE, [&](multiple_lang_t* name) {
      uint8_t version = 0;
      AIPC_RRT_details details{0, *name};
      AIPC_get_RRT_details_with_version(1, regions[i], &details, &version);
      *name = details.name;
    });
    uint8_t dimensions = 0;
    AIPC_num_of_dimension(1, regions[i], &dimensions);
    for (uint8_t d = 0; d < dimensions; ++d) {
      uint8_t levels = 0, graduated = 0;
      takeText(AIPC_TEXT_SIZE, [&](multiple_lang_t* name) {
        AIPC_dimension_name_grad(1, regions[i], d, name, &levels, &graduated);
      });
      fuzz::require(levels <= AIPC_MAX_LEVELS, "rating values");
      for (uint8_t v = 0; v < levels; ++v) {
        Bytes text(AIPC_TEXT_SIZE), abbreviation(AIPC_TEXT_SIZE);
        AIPC_rating_value_text texts{lend(abbreviation), lend(text)};
        AIPC_get_rating_value_text(1, regions[i], d, v, &texts);
        AIPC_drrt_rating_encode(&limits, d, v, 1);
        AIPC_rating_encode(&limits, d, v, 1);
      }
    }
    AIPC_store_rating(limits);
  }
}

// Uses the receiver of the process through its functions. Learned rating regions stay.
void receive(uint32_t source, const Bytes& stream) {
  air().write(source, kFrequency, stream);
  [[maybe_unused]] static const bool made = [] {
    AIFW_register_frmwrk_app_cb(onEvent);
    AIPC_parental_details details{0, 1, 0, 0, 1, 0};
    AIPC_store_rating({1, 2, 1, 1, 1, 1, 1, 2, 1, 1, {}});
    return AIPC_set_parental_details(&details) == 0 &&
           AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_NO_RATING) == 0;
  }();
  scan(source);
  readServices(source);
  readRegions();
  played.clear();
  if (AIFW_play_first_service(source, 0) == 0)
    fuzz::require(!played.take(1).empty(), "a channel that plays");
  AIFW_change_audio(2);
  AISRV_service_info current{};
  AICN_get_current(&current);
  AIST_time_date date;
  AIST_get_cur_time_date(&date);
  AIFW_channel_change_request next{};
  next.mode = AIFW_CHANGE_UP;
  next.input_source = source;
  AIFW_channel_change(&next);
  readServices(source);
  AIFW_stop_curr_src();
  AISRV_reset_db(source);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr uint8_t kSyncByte = 0x47, kCable = 1, kPackets = 2;
  constexpr uint8_t kReceiver = 0x1C;  // the receiver where this is 4 or 8, else the decoders
  fuzz::Input input(data, size);
  const uint8_t form = size > 0 && data[0] == kSyncByte ? kPackets : input.byte();
  const uint32_t source = form & kCable ? AI_INPUT_CABLE : AI_INPUT_TERRESTRIAL;
  const Bytes stream = form & kPackets ? bytesOf(input.rest()) : packetsOfSections(input);
  const uint8_t receiver = form & kReceiver;
  (receiver == 4 || receiver == 8 ? receive : decode)(source, stream);
  return 0;
}
