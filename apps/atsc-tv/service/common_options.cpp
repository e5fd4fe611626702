#include "service/common_options.h"

#include "common/database_files.h"

namespace apps::tv {

std::string CommonOptions::channelDatabase() const { return apps::databaseFiles(db).channels; }
std::string CommonOptions::eventDatabase() const { return apps::databaseFiles(db).events; }

}  // namespace apps::tv
