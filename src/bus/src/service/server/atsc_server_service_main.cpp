#include "service/server/atsc_server_service.h"

ATSCBUS::ATSCServerService g_atsc_server_service;
