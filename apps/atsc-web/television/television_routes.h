// The routes of the television.
#ifndef ATSC_WEB_TELEVISION_TELEVISION_ROUTES_H_
#define ATSC_WEB_TELEVISION_TELEVISION_ROUTES_H_

#include "http/router.h"
#include "television/television.h"

namespace web {

// Adds /api/state, /api/command, /api/console, /api/pin and /api/plan. The callbacks have
// addEventRoutes().
void addTelevisionRoutes(Router& router, Television& television);

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_TELEVISION_ROUTES_H_
