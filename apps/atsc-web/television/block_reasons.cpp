#include "television/block_reasons.h"

namespace web {

std::vector<std::string> BlockReasons::of(const std::string& rating, const apps::Ask& ask) {
  if (!parental_) parental_ = apps::readParental(ask);
  std::vector<std::string> names;
  for (const apps::BlockReason& reason : apps::blockReasons(*parental_, rating)) {
    names.push_back(reason.name);
  }
  return names;
}

}  // namespace web
