#include "service/client/atsc_client_service.h"

#include "atsc_json_transport.h"

namespace ATSCBUS {

ATSCClientService::ATSCClientService()
    : BUSClientInterface(kServiceServerName, kServiceServerName) {}

ATSCClientService::~ATSCClientService() = default;

int ATSCClientService::SendJSONCommand(const char* command, char** result) {
  static const JSONProxyTexts texts{"service/client", "ATSCBUS_SERVICE_CMD_ID_JSON_COMMAND", "TV",
                                    tv_thread_tid};
  return transport::SendJSONCommand(*this, texts, command, result);
}

}  // namespace ATSCBUS
