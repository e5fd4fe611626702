// Why a programme is blocked.
#ifndef ATSC_WEB_TELEVISION_BLOCK_REASONS_H_
#define ATSC_WEB_TELEVISION_BLOCK_REASONS_H_

#include <json/value.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/parental.h"

namespace web {

// Keeps the rating tables and limits of the service: they take many questions. One thread.
class BlockReasons {
 public:
  // The tables or limits have changed.
  void forget() { parental_.reset(); }

  // Returns the names of what blocks a rating such as "TV-14-D-V": {"TV-14", "V"}; of an unrated
  // programme, none. Throws what `ask` throws, which returns the reply to a command.
  std::vector<std::string> of(const std::string& rating, const apps::Ask& ask);

 private:
  std::optional<apps::Parental> parental_;
};

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_BLOCK_REASONS_H_
