#ifndef ATSC_ATSC_SERVER_TV_H_
#define ATSC_ATSC_SERVER_TV_H_

#include <atsc/atsc_tv_server_backend.h>
#include <bus.h>

#include <atomic>

// The backend that is used when none is set.
extern ATSCBUS::ATSCTVServerBackend g_tv_server_backend_default;

namespace ATSCBUS {

// Server of callback messages in the TV process. Passes each message to the registered backend.
class __attribute__((visibility("default"))) ATSCServerTV : public BUSServerInterface {
 public:
  // `backend` (null: the default backend) must outlive the server.
  explicit ATSCServerTV(ATSCTVServerBackend* backend);
  ~ATSCServerTV() override;

  int onTransact(unsigned int code, BUSParam& data, BUSParam* reply, unsigned int flags) override;

  // Replaces the backend (null: the default backend). Any thread. A message that is being handled
  // still reaches the old backend.
  void RegisterBackend(ATSCTVServerBackend* backend);

 private:
  std::atomic<ATSCTVServerBackend*> backend_;
};

}  // namespace ATSCBUS

#endif  // ATSC_ATSC_SERVER_TV_H_
