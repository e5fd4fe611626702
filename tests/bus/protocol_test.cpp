// Compares docs/protocol.md with the library: all commands, with their keys. EventTest compares
// the callbacks.
#include <gmock/gmock.h>

#include <map>
#include <set>

#include "fixture.h"
#include "protocol_document.h"

namespace {

using protocol::at;
using protocol::Example;
using protocol::Exchange;
using protocol::TableRow;
using ::testing::UnorderedElementsAreArray;

using Types = std::map<std::string, std::string>;

TEST(ProtocolDocumentTest, EveryCommandHasARowAndAnExample) {
  const protocol::Document document = protocol::readDocument(PROTOCOL_DOCUMENT);
  const std::vector<std::string> commands = ATSCBUS::ATSCServerService::commandNames();
  const auto rows = protocol::commandRows(document);
  std::vector<std::string> described;
  for (const auto& row : rows) described.push_back(row.first);
  EXPECT_THAT(described, UnorderedElementsAreArray(commands));

  std::map<std::string, Types> answered;  // keys in the replies
  std::set<std::string> shown;
  for (const Example& example : document.examples) {
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

}  // namespace
