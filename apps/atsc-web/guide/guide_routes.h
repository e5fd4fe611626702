// Answers the requests of pages for channels, programmes and rows.
#ifndef ATSC_WEB_GUIDE_GUIDE_ROUTES_H_
#define ATSC_WEB_GUIDE_GUIDE_ROUTES_H_

#include <json/value.h>

#include "guide/guide_store.h"
#include "http/router.h"

namespace web {

// The store has to exist as long as the router.
void addGuideRoutes(Router& router, GuideStore& store);

// Returns a programme as answers describe it, with its description.
Json::Value programmeJson(const Programme& programme);

}  // namespace web

#endif  // ATSC_WEB_GUIDE_GUIDE_ROUTES_H_
