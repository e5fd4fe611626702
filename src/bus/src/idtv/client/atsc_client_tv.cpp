#include "idtv/client/atsc_client_tv.h"

#include "atsc_json_transport.h"

namespace ATSCBUS {

ATSCClientTV::ATSCClientTV() : BUSClientInterface(kTVServerName, kTVServerName) {}

ATSCClientTV::~ATSCClientTV() = default;

int ATSCClientTV::SendJSONCommand(const char* command, char** result) {
  static const JSONProxyTexts texts{"tv/client", "ATSCBUS_TV_CMD_ID_JSON_COMMAND", "Service",
                                    service_thread_tid};
  return transport::SendJSONCommand(*this, texts, command, result);
}

}  // namespace ATSCBUS
