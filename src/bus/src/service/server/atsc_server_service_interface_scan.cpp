// "SCAN": the channel scan.
#include <aicn.h>
#include <aics.h>
#include <aife.h>
#include <aifw.h>
#include <aiin.h>
#include <atsc/atsc_service.h>
#include <atsc/atsc_tables.h>

#include <atomic>
#include <cstring>
#include <exception>

#include "atsc_log.h"
#include "atsc_text.h"
#include "service/server/atsc_server_service.h"

ATSC_LOGGER("atsc/service/interface")

namespace ATSCBUS {

namespace {

// Whether the last scan that was started is a manual scan.
std::atomic<bool> manualScan{false};

// Requested values below this limit are channel numbers, other values frequencies in Hz.
constexpr uint32_t kChannelNumbers = 256;

// Returns the frequency of a channel, 0 when the plan has no such channel. The last entry of a plan
// is its end and not a frequency.
template <size_t N>
uint32_t planFrequency(const int32_t (&plan)[N], uint32_t firstChannel, uint32_t channel) {
  if (channel < firstChannel || channel - firstChannel >= N - 1) return 0;
  return static_cast<uint32_t>(plan[channel - firstChannel]);
}

const char* stateName(int state) {
  switch (state) {
    case AICS_STATE_START:
      return "START";
    case AICS_STATE_PROGRESS:
      return "PROGRESS";
    case AICS_STATE_OVER:
      return "OVER";
    case AICS_STATE_PAUSE:
      return "PAUSE";
    case AICS_STATE_RESUME:
      return "RESUME";
    default:
      return "ERROR";
  }
}

void playFirstService(int source, uint32_t frequency, const atsc::LogPlace& place) {
  ATSC_CALL_AT(place, AIFW_play_first_service, static_cast<uint32_t>(source), frequency);
}

// Returns the frequency of the tuner of an input, 0 when the frequency is unknown.
uint32_t tunedFrequency(int source, const atsc::LogPlace& place) {
  uint8_t flag = 0;
  AIIN_input_t input{};
  ATSC_CALL_AT(place, AIIN_get_input_details, static_cast<uint32_t>(source), &flag, &input, 0);
  AIFE_tuning_details tuning{};
  ATSC_CALL_AT(place, AIFE_get_tuning_details, input.tuner, AIFE_MAIN_PATH, &tuning);
  return tuning.frequency;
}

}  // namespace

int ATSCServerService::Scan_start(Json::Value request) {
  ATSC_ENTER();
  AICS_search_request search{};
  const bool manual = request.get("mode", "auto").asString() != "auto";
  const bool terrestrial = request.get("src", "VSB").asString() == "VSB";
  search.search_type = manual ? AICS_SEARCH_MANUAL : AICS_SEARCH_AUTOMATIC;
  search.source = terrestrial ? AI_INPUT_TERRESTRIAL : AI_INPUT_CABLE;
  if (manual) {
    search.frequency = request.get("freq", 0).asUInt();
    if (search.frequency < kChannelNumbers) {
      const uint32_t channel = search.frequency;
      search.frequency = terrestrial ? planFrequency(atsc_freq, 2, channel)
                                     : planFrequency(cable_digital_std, 1, channel);
      if (search.frequency == 0) {
        ATSC_LOG(Error, "no channel %u in the %s plan", channel, terrestrial ? "VSB" : "QAM");
        ATSC_LEAVE();
        return -1;
      }
    }
  }
  manualScan = manual;
  ATSC_CALL(AICN_set_skip_play_srv, 1);
  search.always_2 = 2;
  const int status = ATSC_CALL(AICS_start_search, &search, Scan_Callback);
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

void ATSCServerService::Scan_Callback(void* progress, int state) {
  ATSC_ENTER();
  if (progress == nullptr) {
    ATSC_LOG(Error, "scan state %d without a progress record", state);
    ATSC_LEAVE();
    return;
  }
  try {
    AICS_scan_progress record;
    memcpy(&record, progress, sizeof record);
    int source = AI_INPUT_TERRESTRIAL;
    Json::Value message;
    message["progress"] = record.progress;
    message["chn_num"] = record.channel_number;
    message["ser_found"] = record.services_found;
    message["cur_freq"] = record.current_frequency;
    message["lock_freq"] = record.lock_frequency;
    message["type"] = record.carrier_type;
    message["tv_num"] = record.tv_services;
    message["radio_num"] = record.radio_services;
    message["data_num"] = record.data_services;
    message["msg"] = stateName(state);
    if (state == AICS_STATE_OVER) {
      if (record.band_mask == AI_MODULATION_QAM) source = AI_INPUT_CABLE;
      ATSC_Service_db_UpdateChannel(source);
      playFirstService(source, manualScan ? record.current_frequency : 0, ATSC_HERE());
    }
    message["class"] = "CALLBACK";
    message["cbtype"] = "SCAN";
    const std::string text = atsc::jsonText(message);
    ATSC_TransmitTVClientJSONCommand(text.c_str(), nullptr);
    ATSC_LOG(Info, "%s", text.c_str());
  } catch (const std::exception& e) {
    ATSC_LOG(Error, "scan state %d is not reported: %s", state, e.what());
  }
  ATSC_LEAVE();
}

int ATSCServerService::Scan_stop() {
  ATSC_ENTER();
  const int source = AICN_get_curr_input_source();
  const int status = ATSC_CALL(AICS_stop_scan);
  playFirstService(source, manualScan ? tunedFrequency(source, ATSC_HERE()) : 0, ATSC_HERE());
  ATSC_Service_db_UpdateChannel(AI_INPUT_TERRESTRIAL);
  ATSC_Service_db_UpdateChannel(AI_INPUT_CABLE);
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

}  // namespace ATSCBUS
