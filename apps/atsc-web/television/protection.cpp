#include "television/protection.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "common/json.h"
#include "http/assets.h"

namespace web {
namespace {

using CommandName = std::pair<std::string, std::string>;

// Reads the table that the page also has.
std::map<CommandName, Protection> readTable() {
  const Asset* const file = findAsset("data/commands.json");
  const auto table = apps::parseJson(file != nullptr ? std::string(file->content) : "");
  std::map<CommandName, Protection> rows;
  for (const Json::Value& row : table.value_or(Json::Value())) {
    const std::string who = row["who"].asString();
    rows[{row["class"].asString(), row["command"].asString()}] = who == "viewer" ? Protection::kFree
                                                                 : who == "protected"
                                                                     ? Protection::kProtected
                                                                     : Protection::kConsole;
  }
  return rows;
}

// A reader that sees a text end at U+0000 would read "unlock" in "unlock\0".
bool endsEarly(const std::string& text) { return text.find('\0') != std::string::npos; }

bool isMalformed(const Json::Value& value) {
  if (value.isString()) return endsEarly(value.asString());
  if (value.isObject()) {
    const auto names = value.getMemberNames();
    if (std::any_of(names.begin(), names.end(), endsEarly)) return true;
  }
  return (value.isObject() || value.isArray()) &&
         std::any_of(value.begin(), value.end(), isMalformed);
}

bool isNumber(const Json::Value& value, int number) {
  return (value.type() == Json::intValue || value.type() == Json::uintValue) && value == number;
}

}  // namespace

Protection protection(const Json::Value& command) {
  static const std::map<CommandName, Protection> table = readTable();
  if (!command.isObject() || !command["class"].isString() || !command["command"].isString() ||
      isMalformed(command)) {
    return Protection::kMalformed;
  }
  const CommandName name = {command["class"].asString(), command["command"].asString()};
  const auto row = table.find(name);
  if (row == table.end()) return Protection::kConsole;
  const auto value = [&](const char* key) { return command.get(key, Json::Value()); };
  if (name == CommandName("FW", "CHANNELMODIFY")) {
    // The service refuses texts of another type.
    const Json::Value type = value("type");
    if (type == "unlock" || type == "undelete") return Protection::kProtected;
  }
  // The service counts many values as false. Only what it cannot count so is free.
  if (name == CommandName("FW", "CHANNELCHANGE") && command.isMember("password_reqd")) {
    const Json::Value required = value("password_reqd");
    if (required != true && !isNumber(required, 1)) return Protection::kPin;
  }
  if (name == CommandName("PC", "PWDUNLOCK")) {
    return isNumber(value("lock_status"), 0) ? Protection::kFree : Protection::kPin;
  }
  return row->second;
}

}  // namespace web
