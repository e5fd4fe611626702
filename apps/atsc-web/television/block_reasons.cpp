#include "television/block_reasons.h"

#include <algorithm>

namespace web {

std::vector<std::string> BlockReasons::of(const std::string& rating, const apps::Ask& ask) {
  if (!parental_) parental_ = apps::readParental(ask);
  std::vector<std::string> names;
  for (const apps::BlockReason& reason : apps::blockReasons(*parental_, rating)) {
    // Two dimensions can name a value alike: "PG" of films and of English programmes.
    if (std::find(names.begin(), names.end(), reason.name) == names.end()) {
      names.push_back(reason.name);
    }
  }
  return names;
}

}  // namespace web
