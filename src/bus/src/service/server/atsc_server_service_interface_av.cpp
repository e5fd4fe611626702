// "AUD", "VC" and "CC": audio, video, captions.
#include <aiaud.h>
#include <aicc.h>
#include <aicn.h>
#include <aifw.h>
#include <aiin.h>
#include <aivc.h>
#include <atsc/atsc_service.h>

#include <algorithm>

#include "atsc_log.h"
#include "atsc_service_db.h"
#include "service/server/atsc_server_service.h"
#include "service/server/atsc_server_service_interface.h"

ATSC_LOGGER("atsc/service/interface")

namespace ATSCBUS {

namespace {

// Stores the audio track in the current service's row.
void storeAudioIndex(unsigned int track, const atsc::LogPlace& place) {
  atsc::LentService current;
  ATSC_CALL_AT(place, AICN_get_current, &current.record);
  AIIN_input_t input{};
  ATSC_CALL_AT(place, AIIN_get_db_no_input_details, current.record.service_id.input_source, &input);
  ATSC_Service_db_updateChannelEntryInterger(atsc::channelKey(current.record).c_str(),
                                             atsc::channelTable(static_cast<int>(input.type)),
                                             "audio_index", track);
}

uint32_t dualMode(const std::string& name) {
  if (name == "LEFT") return AIAUD_DUAL_LEFT;
  if (name == "RIGHT") return AIAUD_DUAL_RIGHT;
  if (name == "MIXED") return AIAUD_DUAL_MIXED;
  return AIAUD_DUAL_STEREO;
}

}  // namespace

int ATSCServerService::AUD_changeAudio(unsigned int index) {
  ATSC_ENTER();
  // Tracks count from 0 in requests, from 1 in the middleware and the database.
  const unsigned int track = index + 1;
  const int status = ATSC_CALL(AIFW_change_audio, static_cast<uint8_t>(track));
  if (status == 0) storeAudioIndex(track, ATSC_HERE());
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

int ATSCServerService::AUD_setDualMode(Json::Value request) try {
  ATSC_ENTER();
  const uint32_t mode = dualMode(request.get("mode", "STEREO").asString());
  const int status = ATSC_CALL(AIAUD_set_dual_mode, mode);
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
} catch (const std::exception& e) {
  const int result = atsc::refused(*g_logger, ATSC_HERE(), e);
  ATSC_LEAVE();
  return result;
}

int ATSCServerService::VC_close() {
  ATSC_ENTER();
  ATSC_CALL(AIVC_close_video, 0);
  ATSC_LEAVE();
  return 0;
}

int ATSCServerService::CC_GetSAR(Json::Value request, char** result) {
  ATSC_ENTER();
  const uint32_t input_type = atsc::unsignedMember(request, "input_type", 0);
  const uint32_t service_id = atsc::unsignedMember(request, "AiccServiceId", 0);
  int32_t ratio = 1;
  int code = -1;
  atsc::LentService current;
  ATSC_CALL(AICN_get_current, &current.record);
  AICC_cc_service_data captions{};
  if (ATSC_CALL(AICC_get_cc_service_data, 0, &current.record, &captions) == 0) {
    const AICC_cc_service* const begin = captions.services;
    const AICC_cc_service* const end =
        begin + std::min<unsigned>(captions.count, AICC_MAX_SERVICES);
    const AICC_cc_service* const found =
        std::find_if(begin, end, [&](const AICC_cc_service& service) {
          return service.service_id == service_id &&
                 service.input_type == static_cast<int32_t>(input_type);
        });
    if (found != end) {
      ratio = found->aspect_ratio;
      code = 0;
      ATSC_LOG(Debug, "hit\n");
    }
  }
  Json::Value reply;
  reply["cc_aspect_ratio"] = ratio;
  const std::string text = atsc::giveReply(reply, result);
  ATSC_LOG(Debug, "result: %s", text.c_str());
  ATSC_LOG(Debug, "cc_aspect_ratio = %d", ratio);
  ATSC_LEAVE();
  return code;
}

}  // namespace ATSCBUS
