// Compares docs/protocol.md with the library: all commands, with their keys. EventTest compares
// the callbacks. Compares the tables of the television in a browser with both.
#include <fstream>
#include <map>
#include <set>

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

// The keys of a row with their types.
Types shownKeys(const Json::Value& keys) {
  Types types;
  for (const Json::Value& key : keys) types[key["name"].asString()] = key["type"].asString();
  return types;
}

// What the document says of a key that a command omits.
std::string shownDefault(const Json::Value& key) {
  if (key["required"] == true) return "required";
  if (key.isMember("otherwise")) return key["otherwise"].asString();
  if (!key.isMember("default")) return "none";
  const std::string text = key["default"].asString();
  return text.empty() ? "empty" : text;
}

TEST(ProtocolDocumentTest, TheBrowsersTablesSayTheSame) {
  const protocol::Document document = protocol::readDocument(PROTOCOL_DOCUMENT);
  const std::set<std::string> kWho = {"viewer", "protected", "console"};
  std::set<std::string> commands;
  for (const Json::Value& shown : protocol::readTable(BROWSER_TABLES "/commands.json")) {
    const std::string name = shown["class"].asString() + ' ' + shown["command"].asString();
    SCOPED_TRACE(name);
    EXPECT_TRUE(commands.insert(name).second);
    EXPECT_NE("", shown["about"].asString());
    EXPECT_EQ(1u, kWho.count(shown["who"].asString()));
    const auto rows = protocol::commandRows(document);
    const auto row = rows.find(name);
    ASSERT_NE(rows.end(), row);
    const std::string& keys = protocol::cell(*row->second, "keys");
    EXPECT_EQ(protocol::keys(keys), shownKeys(shown["keys"]));
    EXPECT_EQ(protocol::keys(protocol::cell(*row->second, "reply")), shownKeys(shown["reply"]));
    // Each value that the document names is offered.
    Types defaults;
    std::set<std::string> offered = {"audio_pid"};  // a column
    for (const Json::Value& key : shown["keys"]) {
      defaults[key["name"].asString()] = shownDefault(key);
      offered.insert({key["name"].asString(), key["default"].asString()});
      for (const char* list : {"values", "examples"})
        for (const Json::Value& value : key[list]) offered.insert(value.asString());
    }
    EXPECT_EQ(protocol::defaults(keys), defaults);
    for (const std::string& value : protocol::names(keys))
      EXPECT_EQ(1u, offered.count(value)) << value;
  }
  const auto known = ATSCBUS::ATSCServerService::commandNames();
  EXPECT_EQ(std::set<std::string>(known.begin(), known.end()), commands);

  std::map<std::string, std::pair<std::string, Types>> described, shown;
  for (const auto& [kind, row] : protocol::callbackRows(document))
    described[kind] = {protocol::cell(*row, "PC"), protocol::keys(protocol::cell(*row, "keys"))};
  for (const Json::Value& row : protocol::readTable(BROWSER_TABLES "/callbacks.json"))
    shown[row["kind"].asString()] = {row["pc"].asString(), shownKeys(row["keys"])};
  EXPECT_EQ(described, shown);

  const Json::Value files = protocol::readTable(BROWSER_TABLES "/columns.json");
  for (const auto& [heading, file] :
       {std::pair("### Channel tables", "channels"), {"### Guide tables", "guide"}}) {
    std::vector<std::string> columns, explained;
    for (const protocol::TableRow& row : document.rows) {
      if (row.heading == heading && row.first == "column")
        columns.push_back(protocol::names(protocol::cell(row, "column"))[0] + ' ' +
                          protocol::cell(row, "type"));
    }
    for (const Json::Value& column : files[file])
      explained.push_back(column["name"].asString() + ' ' + column["type"].asString());
    EXPECT_EQ(columns, explained);
  }

  // Its code is that of the document, whose statements are run.
  std::ifstream file(PROTOCOL_DOCUMENT);
  std::set<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.insert(line);
    if (line.compare(0, 4, "    ") == 0) lines.insert(line.substr(4));
  }
  for (const Json::Value& section : protocol::readTable(BROWSER_TABLES "/start.json"))
    for (const Json::Value& line : section["code"])
      EXPECT_EQ(1u, lines.count(line.asString())) << line;
}

}  // namespace
