// Compares docs/protocol.md with the running service: runs all examples in order.
#include <SQLiteCpp/SQLiteCpp.h>
#include <json/json.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <set>
#include <sstream>
#include <tuple>

#include "protocol_document.h"
#include "system_fixture.h"

namespace {

using protocol::at;
using protocol::Example;
using protocol::Exchange;
using protocol::Statement;
using protocol::TableRow;

constexpr const char* kStart = "2026-11-22T01:10:00Z";

// Returns whether the value in the document depends on the time.
bool isVolatile(const std::string& key) {
  static const std::set<std::string> keys = {"hour", "min",        "mday", "month",
                                             "sec",  "SystemTime", "year"};
  return keys.count(key) != 0;
}

// Returns whether `actual` matches the document.
bool matches(const Json::Value& shown, const Json::Value& actual) {
  if (shown == Json::Value(protocol::kElided)) return true;
  if (protocol::typeOf(shown) != protocol::typeOf(actual)) return false;
  if (shown.isObject()) {
    if (shown.getMemberNames() != actual.getMemberNames()) return false;
    for (const std::string& key : shown.getMemberNames()) {
      if (isVolatile(key) ? protocol::typeOf(shown[key]) != protocol::typeOf(actual[key])
                          : !matches(shown[key], actual[key])) {
        return false;
      }
    }
    return true;
  }
  if (shown.isArray()) {
    const bool open = !shown.empty() && shown[shown.size() - 1] == Json::Value(protocol::kElided);
    const Json::ArrayIndex count = open ? shown.size() - 1 : shown.size();
    if (open ? actual.size() < count : actual.size() != count) return false;
    for (Json::ArrayIndex i = 0; i < count; ++i) {
      if (!matches(shown[i], actual[i])) return false;
    }
    return true;
  }
  return shown == actual;
}

std::string compact(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

class ProtocolTest : public SystemTest {
 protected:
  ProtocolTest() : document_(protocol::readDocument(PROTOCOL_DOCUMENT)) {}

  void begin() {
    broadcastLineups({"--start", kStart});
    startService(kFast, {"--fast", "--clock", kStart});
    watch_ = startWatch({"--json"});
  }

  // Waits for the documented result; only briefly after an earlier mismatch.
  bool becomes(const std::function<bool()>& condition) {
    return eventually(condition, std::chrono::seconds(HasFailure() ? 1 : 60));
  }

  // Returns the callbacks so far.
  std::vector<Json::Value> heard() const {
    std::vector<Json::Value> messages;
    std::istringstream lines(watch_->out());
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
      messages.push_back(protocol::readJson(line, 0));
    }
    return messages;
  }

  void replay(const Exchange& exchange) {
    std::string out;
    const auto answersSo = [&] {
      const Outcome outcome = send(exchange.text);
      out = outcome.out + outcome.err;
      const size_t result = out.rfind("result ");
      if (result == std::string::npos) return false;
      Json::Value reply;
      if (result > 0) std::istringstream(out.substr(0, result)) >> reply;
      return std::stoi(out.substr(result + 7)) == exchange.result && matches(exchange.reply, reply);
    };
    // A command with a reply is a query and can be repeated.
    const bool right = exchange.reply.isNull() ? answersSo() : becomes(answersSo);
    EXPECT_TRUE(right) << at(exchange.line) << ": " << exchange.text << "\nanswers\n" << out;
  }

  // Searches the callbacks from number `from` on.
  void expectCallback(const Example& example, size_t from) {
    std::vector<Json::Value> all;
    const bool came = becomes([&] {
      all = heard();
      return std::any_of(
          all.begin() + static_cast<ptrdiff_t>(from), all.end(),
          [&](const Json::Value& message) { return matches(example.callback, message); });
    });
    std::string others;
    for (size_t i = from; !came && i < all.size(); ++i) others += compact(all[i]) + '\n';
    EXPECT_TRUE(came) << at(example.line) << ": does not come; what came:\n" << others;
  }

  std::vector<std::string> rows(const Statement& statement) const {
    SQLite::Database database = openDatabase(database_);
    database.exec("ATTACH '" + (db_ / "ATSC_event.db").string() + "' AS guide");
    SQLite::Statement query(database, statement.sql);
    for (const auto& [name, value] : statement.parameters) {
      const bool number = value.find_first_not_of("0123456789") == std::string::npos;
      if (number) {
        query.bind(name, static_cast<int64_t>(std::stoll(value)));
      } else {
        query.bind(name, value);
      }
    }
    return rowsOf(query);
  }

  void expectRows(const Example& example) {
    std::vector<std::string> lines;
    std::string error;
    const bool right = becomes([&] {
      try {
        lines = rows(example.statement);
        error.clear();
      } catch (const std::exception& exception) {
        error = exception.what();
      }
      return error.empty() && lines == example.statement.rows;
    });
    EXPECT_TRUE(right) << at(example.line) << ": " << error << testing::PrintToString(lines);
  }

  const protocol::Document document_;
  std::unique_ptr<Process> watch_;
};

TEST_F(ProtocolTest, EveryExampleIsTrue) {
  ASSERT_NO_FATAL_FAILURE(begin());
  size_t before = 0;  // number of callbacks before the commands that cause a callback
  for (const Example& example : document_.examples) {
    switch (example.kind) {
      case Example::kCommands:
        before = heard().size();
        for (const Exchange& exchange : example.exchanges) replay(exchange);
        break;
      case Example::kCallback:
        expectCallback(example, before);
        break;
      case Example::kSql:
        expectRows(example);
        break;
    }
  }

  // All callbacks match the table of callbacks.
  const auto kinds = protocol::callbackRows(document_);
  std::set<std::string> told;
  for (const Json::Value& message : heard()) {
    const std::string kind = message["cbtype"].asString();
    const auto row = kinds.find(kind);
    if (row == kinds.end()) {
      ADD_FAILURE() << "not in the document: " << compact(message);
      continue;
    }
    if (!told.insert(compact(message)).second) continue;
    EXPECT_EQ(protocol::keys(protocol::cell(*row->second, "keys")), protocol::typesOf(message))
        << at(row->second->line) << ": " << compact(message);
    EXPECT_EQ("yes", protocol::cell(*row->second, "PC")) << at(row->second->line);
  }

  // Columns of the database tables.
  for (const auto& [heading, file, tables] :
       {std::tuple<const char*, std::filesystem::path, Words>{
            "### Channel tables", database_, {"channel_data_t", "channel_data_c"}},
        {"### Guide tables", db_ / "ATSC_event.db", {"event_t", "event_c"}}}) {
    std::vector<std::string> documented;
    for (const TableRow& row : document_.rows) {
      if (row.heading != heading || row.first != "column") continue;
      const std::string type = protocol::cell(row, "type");
      documented.push_back(protocol::names(row.cells[0]).at(0) + ' ' +
                           (type == "none" ? "" : type));
    }
    SQLite::Database database = openDatabase(file);
    for (const std::string& table : tables) {
      SQLite::Statement query(database, "SELECT name || ' ' || type FROM pragma_table_info(?)");
      query.bind(1, table);
      EXPECT_EQ(rowsOf(query), documented) << heading << ' ' << table;
    }
  }
}

}  // namespace
