// Changes of the service list by the viewer.
#ifndef ATSC_HOST_RECEIVER_CONTROL_SERVICE_EDITOR_H_
#define ATSC_HOST_RECEIVER_CONTROL_SERVICE_EDITOR_H_

#include <cstdint>

#include "aisrv.h"
#include "receiver/control/player.h"
#include "receiver/events/event_queue.h"
#include "receiver/station/service_list.h"
#include "receiver/tuners/live_tuner.h"

namespace atschost {

// See AIFW_modify_service(), AISRV_reset_db() and RMGRReload(). The functions wait for the disk. On
// failure they return false and change nothing. Any thread.
class ServiceEditor {
 public:
  ServiceEditor(ServiceList& services, Player& player, LiveTuner& tuner, EventQueue& events);

  bool add(const AISRV_service_info& record);
  bool modify(const AISRV_service_info& record);
  // Removes all services of a source.
  bool reset(uint32_t source);
  // Reloads the stored list.
  bool reload();

 private:
  ServiceList& services_;
  Player& player_;
  LiveTuner& tuner_;
  EventQueue& events_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_CONTROL_SERVICE_EDITOR_H_
