// Compares docs/protocol.md with the library: all commands, with their keys. EventTest compares
// the callbacks.
#include <map>

#include "fixture.h"
#include "protocol_document.h"

namespace {

using protocol::at;
using protocol::Example;
using protocol::Exchange;

using Types = std::map<std::string, std::string>;

TEST(ProtocolDocumentTest, EveryCommandHasARowAndAnExample) {
  const protocol::Document document = protocol::readDocument(PROTOCOL_DOCUMENT);
  const std::vector<std::string> commands = ATSCBUS::ATSCServerService::commandNames();
  const auto rows = protocol::commandRows(document);
  for (const std::string& name : commands) EXPECT_EQ(1u, rows.count(name)) << name;
  EXPECT_EQ(commands.size(), rows.size());

  std::map<std::string, Types> answered;  // keys in the replies, of all shown commands
  for (const Example& example : document.examples) {
    for (const Exchange& exchange : example.exchanges) {
      SCOPED_TRACE(at(exchange.line));
      const std::string name =
          exchange.command["class"].asString() + ' ' + exchange.command["command"].asString();
      const auto row = rows.find(name);
      ASSERT_NE(rows.end(), row) << name;
      const Types keys = protocol::keys(protocol::cell(*row->second, "keys"));
      for (const auto& [key, type] : protocol::typesOf(exchange.command)) {
        ASSERT_EQ(1u, keys.count(key)) << key;
        // A refused command can have a wrong type.
        EXPECT_TRUE(exchange.result != 0 || keys.at(key) == type) << key;
      }
      Types& reply = answered[name];
      for (const auto& [key, type] : protocol::typesOf(exchange.reply)) {
        const bool elided = exchange.reply[key] == Json::Value(protocol::kElided);
        reply[key] = elided ? protocol::keys(protocol::cell(*row->second, "reply"))[key] : type;
      }
    }
  }
  EXPECT_EQ(commands.size(), answered.size()) << "each has an example";
  for (const auto& [name, row] : rows) {
    EXPECT_EQ(protocol::keys(protocol::cell(*row, "reply")), answered[name])
        << at(row->line) << ": " << name;
  }
}

}  // namespace
