// Compares docs/protocol.md with the library: all commands and callbacks, with their keys.
#include <aifw.h>
#include <gmock/gmock.h>

#include <map>
#include <set>

#include "atsc_service_event.h"
#include "fixture.h"
#include "protocol_document.h"

namespace {

using protocol::at;
using protocol::Example;
using protocol::Exchange;
using protocol::TableRow;
using ::testing::UnorderedElementsAreArray;

using Types = std::map<std::string, std::string>;

class ProtocolDocumentTest : public LibraryTest {
 protected:
  ProtocolDocumentTest() : document_(protocol::readDocument(PROTOCOL_DOCUMENT)) {}

  void SetUp() override {
    LibraryTest::SetUp();
    startQueues();
  }

  // Returns the message of an event, with all possible keys; null when none is queued.
  static Json::Value messageOf(AFW_event_t event, void (*take)(AFW_event_t, void*)) {
    fake::reset();
    AIFW_time_data time{};
    uint8_t bytes[] = {'x'};
    multiple_lang_t text = {bytes, sizeof bytes, 0};
    const bool timed = event == AFW_STT_UPDATE || event == AFW_TIME_CHANGE;
    const bool alert = event == AFW_EAS_START_BLOCKING || event == AFW_EAS_START_NON_BLOCKING;
    take(event, timed ? static_cast<void*>(&time) : alert ? &text : nullptr);
    if (fake::logLine("push command").empty()) return {};
    const Lines sent = fake::waitForSent(1);
    return sent.empty() ? Json::Value() : json(sent[0]);
  }

  const protocol::Document document_;
};

template <typename Map>
std::vector<std::string> keysOf(const Map& map) {
  std::vector<std::string> keys;
  for (const auto& entry : map) keys.push_back(entry.first);
  return keys;
}

TEST_F(ProtocolDocumentTest, EveryCommandHasARowAndAnExample) {
  const std::vector<std::string> commands = ATSCBUS::ATSCServerService::commandNames();
  const auto rows = protocol::commandRows(document_);
  EXPECT_THAT(keysOf(rows), UnorderedElementsAreArray(commands));

  std::map<std::string, Types> answered;  // keys in the replies
  std::set<std::string> shown;
  for (const Example& example : document_.examples) {
    for (const Exchange& exchange : example.exchanges) {
      const std::string name =
          exchange.command["class"].asString() + ' ' + exchange.command["command"].asString();
      shown.insert(name);
      const auto row = rows.find(name);
      if (row == rows.end()) {
        ADD_FAILURE() << at(exchange.line) << ": there is no " << name;
        continue;
      }
      const Types keys = protocol::keys(protocol::cell(*row->second, "keys"));
      for (const auto& [key, type] : protocol::typesOf(exchange.command)) {
        EXPECT_EQ(1u, keys.count(key)) << at(exchange.line) << ": the table lacks " << key;
        // A refused command can have a wrong type.
        if (exchange.result == 0 && keys.count(key) != 0) {
          EXPECT_EQ(keys.at(key), type) << at(exchange.line) << ": " << key;
        }
      }
      for (const auto& [key, type] : protocol::typesOf(exchange.reply)) {
        if (exchange.reply[key] == Json::Value(protocol::kElided)) {
          answered[name][key] = protocol::keys(protocol::cell(*row->second, "reply"))[key];
        } else {
          answered[name][key] = type;
        }
      }
    }
  }
  EXPECT_THAT(shown, UnorderedElementsAreArray(commands));
  for (const auto& [name, row] : rows) {
    EXPECT_EQ(protocol::keys(protocol::cell(*row, "reply")), answered[name])
        << at(row->line) << ": " << name;
  }
}

TEST_F(ProtocolDocumentTest, EveryCallbackHasARowWithItsKeys) {
  std::map<std::string, Types> known;  // kinds that have a message
  std::set<std::string> raised;        // kinds that an event causes
  for (AFW_event_t event = 0; event < 100; ++event) {
    const Json::Value message = messageOf(event, _ATSC_Service_CB_To_TV);
    if (message.isNull()) continue;
    const std::string kind = message["cbtype"].asString();
    known[kind] = protocol::typesOf(message);
    if (!messageOf(event, ATSC_Service_event_cb).isNull()) raised.insert(kind);
  }
  // Sent when the timer ends that other events start.
  raised.insert("SERVICE_BUILD_COMPLETED");

  fake::reset();
  ASSERT_EQ(0, ask("SCAN start").result);
  AICS_scan_progress progress{};
  fake::scanCallback()(&progress, AICS_STATE_PROGRESS);
  const Json::Value scan = json(fake::waitForSent(1).at(0));
  known["SCAN"] = protocol::typesOf(scan);
  raised.insert("SCAN");

  const auto rows = protocol::callbackRows(document_);
  EXPECT_THAT(keysOf(rows), UnorderedElementsAreArray(keysOf(known)));
  for (const auto& [kind, row] : rows) {
    const bool never = protocol::cell(*row, "PC") == "never";
    EXPECT_EQ(raised.count(kind) == 0, never) << at(row->line) << ": " << kind;
    if (never) continue;
    EXPECT_EQ(protocol::keys(protocol::cell(*row, "keys")), known[kind])
        << at(row->line) << ": " << kind;
  }
}

}  // namespace
