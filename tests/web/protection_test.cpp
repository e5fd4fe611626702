// Who may send which command, whatever its text looks like.
#include "television/protection.h"

#include <gmock/gmock.h>

#include <string>

#include "common/json.h"
#include "common/text.h"

namespace {

using web::Protection;

// Reads a command as the routes do.
Protection needs(const std::string& text) {
  auto command = apps::parseJson(text);
  if (command) command = apps::parseJson(apps::compactJson(*command));
  return command ? web::protection(*command) : Protection::kMalformed;
}

TEST(Protection, AsksForThePinWhereTheServiceWouldUnlock) {
  using namespace std::string_literals;
  const auto change = [](const std::string& value) {
    return R"({"class":"FW","command":"CHANNELCHANGE","major":5,"password_reqd":)" + value + "}";
  };
  const auto unlock = [](const std::string& members) {
    return R"({"class":"PC","command":"PWDUNLOCK")" + members + "}";
  };
  const auto modify = [](const std::string& type) {
    return R"({"class":"FW","command":"CHANNELMODIFY","major":5,"minor":1,"type":)" + type + "}";
  };
  const struct {
    std::string text;
    Protection needs;
  } rows[] = {
      {R"({"class":"FW","command":"CHANNELCHANGE","major":5})", Protection::kFree},
      {change("true"), Protection::kFree},
      {change("1"), Protection::kFree},
      {change("false"), Protection::kPin},
      {change("0"), Protection::kPin},
      {change("0.0"), Protection::kPin},
      {change("-0"), Protection::kPin},
      {change("1e-400"), Protection::kPin},
      {change("null"), Protection::kPin},
      {change("\"\""), Protection::kPin},
      {change("[]"), Protection::kPin},
      {change("4294967296"), Protection::kPin},
      // The last one of two counts for this program, the first one for some readers.
      {change("true,\"password_reqd\":false"), Protection::kPin},
      {change("true") + R"( {"password_reqd":false})", Protection::kFree},
      {unlock(R"(,"lock_status":0)"), Protection::kFree},
      {unlock(R"(,"lock_status":1)"), Protection::kPin},
      {unlock(R"(,"lock_status":-1)"), Protection::kPin},
      {unlock(R"(,"lock_status":true)"), Protection::kPin},
      {unlock(R"(,"lock_status":256)"), Protection::kPin},
      {unlock(R"(,"lock_status":"1")"), Protection::kPin},
      {unlock(R"(,"lock_status":0,"lock_status":1)"), Protection::kPin},
      {unlock(""), Protection::kPin},
      {modify("\"skip\""), Protection::kFree},
      {modify("\"lock\""), Protection::kFree},
      {modify("\"unlock\""), Protection::kProtected},
      {modify("\"un\\u006cock\""), Protection::kProtected},
      {modify("\"undelete\""), Protection::kProtected},
      // Texts that some readers take for "unlock".
      {modify("\"unlock\\u0000\""), Protection::kMalformed},
      {modify("\"\xC1\xB5nlock\""), Protection::kFree},
      {R"({"class":"PC","command":"STORERATING","us":{"tv":0},"can":{},"dwn":[]})",
       Protection::kProtected},
      {R"({"class":"PC","command":"RETREIVERATING"})", Protection::kFree},
      {R"({"class":"SRV","command":"RESET","src":"VSB"})", Protection::kProtected},
      {R"({"class":"PC","class":"FW","command":"INIT"})", Protection::kFree},
      {R"({"class":"FW","class":"PC","command":"STOREALL"})", Protection::kProtected},
      {R"({"class":"PC","command":"STOREALL","\u0000":1})", Protection::kMalformed},
      {R"({"class":"EAS","command":"EASUSERSETTING","op":"set","setting":0})", Protection::kFree},
      {R"({"class":"TEST","command":"GETSERVICE"})", Protection::kConsole},
      {R"({"class":"pc","command":"PWDUNLOCK","lock_status":1})", Protection::kConsole},
      {R"({"class":"PC ","command":"PWDUNLOCK","lock_status":1})", Protection::kConsole},
      {R"({"class":["PC"],"command":"PWDUNLOCK","lock_status":1})", Protection::kMalformed},
      {R"([{"class":"FW","command":"INIT"}])", Protection::kMalformed},
      {R"("PC")", Protection::kMalformed},
      {"", Protection::kMalformed},
      {std::string(5000, '['), Protection::kMalformed},
  };
  for (const auto& row : rows) EXPECT_EQ(row.needs, needs(row.text)) << row.text.substr(0, 100);
}

TEST(Protection, TextsOfTheLibraryBecomeUtf8) {
  const struct {
    std::string text;
    std::string valid;
  } rows[] = {
      {"caf\xC3\xA9", "café"},
      {"\xED\xA0\xBD\xED\xB8\x80!", "😀!"},  // a pair of surrogates
      {"\xED\xA0\xBDx", "\uFFFDx"},
      {"\xED\xB8\x80\xED\xA0\xBD", "\uFFFD\uFFFD"},
      {"\xED\xA0\xBD\xED\xA0\xBD\xED\xB8\x80", "\uFFFD😀"},
      {"\xC3", "\uFFFD"},
      {"a\xFF\xFE", "a\uFFFD\uFFFD"},
      {"\xC0\xAF", "\uFFFD\uFFFD"},
      {"\xE0\x80\xAF", "\uFFFD\uFFFD\uFFFD"},
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xF0\x9F\x98", "\uFFFD\uFFFD\uFFFD"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.valid, apps::validUtf8(row.text));
}

}  // namespace
