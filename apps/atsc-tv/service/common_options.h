// The options that all subcommands share.
#ifndef ATSC_TV_SERVICE_COMMON_OPTIONS_H_
#define ATSC_TV_SERVICE_COMMON_OPTIONS_H_

#include <string>

#include "service/client.h"

namespace apps::tv {

// Options that may precede or follow any subcommand.
struct CommonOptions {
  std::string db;
  bool verbose = false;

  Client client() const { return Client(verbose); }
  // Return the paths of the databases.
  std::string channelDatabase() const;
  std::string eventDatabase() const;
};

}  // namespace apps::tv

#endif  // ATSC_TV_SERVICE_COMMON_OPTIONS_H_
