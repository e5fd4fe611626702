#include "service/server/atsc_server_service_interface.h"

#include <aicn.h>
#include <atsc/atsc_service.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "atsc_service_db.h"

namespace atsc {

uint32_t sourceNamed(const std::string& name) {
  return name == "VSB" ? AI_INPUT_TERRESTRIAL : AI_INPUT_CABLE;
}

std::string textMember(const Json::Value& request, const char* key, const char* absent) {
  const Json::Value member = request.get(key, absent);
  return member.isConvertibleTo(Json::stringValue) ? member.asString() : absent;
}

uint32_t unsignedMember(const Json::Value& request, const char* key, uint32_t absent) {
  const Json::Value member = request.get(key, absent);
  return member.isConvertibleTo(Json::uintValue) ? member.asUInt() : absent;
}

bool hasMember(const Json::Value& request, const char* key, Json::ValueType type) {
  return request.isMember(key) && request[key].isConvertibleTo(type);
}

int refused(LoggerCpp& logger, const LogPlace& place, const std::exception& reason) {
  logger.Error("%-9s: [%d][%s()][%s:%d] command refused: %s", place.tag, processId(),
               place.function, place.file, place.line, reason.what());
  return -1;
}

LentService::LentService(size_t slot) : name(std::max<size_t>(slot, kNameSlot)) {
  const uint32_t count = 1;
  Utili_allocSrvMem(&record, &count, name.data());
}

std::string giveReply(const Json::Value& reply, char** result) {
  std::string text = jsonText(reply);
  if (result == nullptr) return text;
  *result = text.empty() ? nullptr : static_cast<char*>(calloc(text.size() + 1, 1));
  if (*result != nullptr) memcpy(*result, text.data(), text.size());
  return text;
}

// Logs a line of a handler: the common beginning, then the text.
#define HANDLER_LOG(level, line, format, ...)                                                \
  logger_.level("%-9s: [%d][%s()][%s:%d] " format, place_.tag, processId(), place_.function, \
                place_.file, line, ##__VA_ARGS__)

Handler::Handler(LoggerCpp& logger, const LogPlace& place) : logger_(logger), place_(place) {
  HANDLER_LOG(Trace, place_.line, "ENTER ");
}

int Handler::refuse(const char* reason, int line) const {
  HANDLER_LOG(Error, line, "%s: %s", reason, place_.signature);
  return -1;
}

int Handler::check(const char* function, int status, int line) const {
  LogPlace place = place_;
  place.line = line;
  return checkStatus(logger_, place, function, status);
}

int Handler::leave(int line) const {
  HANDLER_LOG(Trace, line, "LEAVE ");
  return 0;
}

int Handler::leave(const char* function, int status, int line) const {
  check(function, status, line);
  leave(line);
  return status == 0 ? 0 : -1;
}

void Handler::answer(const Json::Value& reply, char** result, int line) const {
  HANDLER_LOG(Debug, line, "result: %s", giveReply(reply, result).c_str());
}

int findChannelIndex(const AISRV_service_info& service, uint32_t source_id) {
  ATSC_Service_db_channelKey key{};
  key.major = service.major;
  key.minor = service.minor;
  key.source_id = source_id;
  key.frequency = service.frequency;
  snprintf(key.table, sizeof key.table, "%s", channelTable(AICN_get_curr_input_source()));
  return ATSC_Service_db_findChannelIndex(channelDatabasePath().c_str(), key, nullptr, nullptr);
}

}  // namespace atsc
