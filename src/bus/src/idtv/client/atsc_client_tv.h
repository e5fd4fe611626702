#ifndef ATSC_ATSC_CLIENT_TV_H_
#define ATSC_ATSC_CLIENT_TV_H_

#include <bus.h>

namespace ATSCBUS {

// Proxy of the TV application in the service process; sends callback messages.
class __attribute__((visibility("default"))) ATSCClientTV : public BUSClientInterface {
 public:
  ATSCClientTV();
  ~ATSCClientTV() override;

  // Sends one JSON text; see transport::SendJSONCommand(). Any thread.
  int SendJSONCommand(const char* command, char** result);
};

}  // namespace ATSCBUS

#endif  // ATSC_ATSC_CLIENT_TV_H_
