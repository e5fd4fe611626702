#ifndef ATSC_ATSC_CLIENT_SERVICE_H_
#define ATSC_ATSC_CLIENT_SERVICE_H_

#include <bus.h>

namespace ATSCBUS {

// Proxy of the service in the TV process; sends commands.
class __attribute__((visibility("default"))) ATSCClientService : public BUSClientInterface {
 public:
  ATSCClientService();
  ~ATSCClientService() override;

  // Sends one JSON text; see transport::SendJSONCommand(). Any thread.
  int SendJSONCommand(const char* command, char** result);
};

}  // namespace ATSCBUS

#endif  // ATSC_ATSC_CLIENT_SERVICE_H_
