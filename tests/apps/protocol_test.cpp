// Compares docs/protocol.md with the running service: runs all examples in order.
#include <algorithm>
#include <chrono>
#include <functional>
#include <set>
#include <tuple>

#include "protocol_document.h"
#include "system_fixture.h"

namespace {

using protocol::at;
using protocol::Example;
using protocol::Exchange;
using protocol::TableRow;

constexpr const char* kProtocolStart = "2026-11-22T01:10:00Z";

// Returns the value in the document, with what it elides and what depends on the time taken from
// `actual`.
Json::Value completed(Json::Value shown, const Json::Value& actual) {
  static const std::set<std::string> kVolatile = {"hour", "min",        "mday", "month",
                                                  "sec",  "SystemTime", "year"};
  if (shown == Json::Value(protocol::kElided)) return actual;
  if (shown.isObject() && actual.isObject()) {
    for (const std::string& key : shown.getMemberNames()) {
      const bool same = protocol::typeOf(shown[key]) == protocol::typeOf(actual[key]);
      shown[key] =
          same && kVolatile.count(key) != 0 ? actual[key] : completed(shown[key], actual[key]);
    }
  }
  if (shown.isArray() && actual.isArray()) {
    const Json::ArrayIndex last = shown.size() - 1;
    if (!shown.empty() && shown[last] == Json::Value(protocol::kElided)) {
      shown.resize(last);
      for (Json::ArrayIndex i = last; i < actual.size(); ++i) shown.append(actual[i]);
    }
    for (Json::ArrayIndex i = 0; i < shown.size() && i < actual.size(); ++i) {
      shown[i] = completed(shown[i], actual[i]);
    }
  }
  return shown;
}

bool matches(const Json::Value& shown, const Json::Value& actual) {
  return completed(shown, actual) == actual;
}

std::string compact(const Json::Value& value) { return Json::FastWriter().write(value); }

class ProtocolTest : public SystemTest {
 protected:
  // Waits for the documented result; only briefly after an earlier mismatch.
  bool becomes(const std::function<bool()>& condition) {
    return eventually(condition, std::chrono::seconds(HasFailure() ? 1 : 60));
  }

  // Returns the callbacks so far.
  std::vector<Json::Value> heard() const { return callbacksIn(watch_->out()); }

  void replay(const Exchange& exchange) {
    Outcome outcome{};
    const auto answersSo = [&] {
      outcome = send(exchange.text);
      const size_t result = outcome.out.rfind("result ");
      return result != std::string::npos &&
             std::stoi(outcome.out.substr(result + 7)) == exchange.result &&
             matches(exchange.reply, parsed(outcome.out.substr(0, result)));
    };
    // A command with a reply is a query and can be repeated.
    const bool right = exchange.reply.isNull() ? answersSo() : becomes(answersSo);
    EXPECT_TRUE(right) << at(exchange.line) << ": " << exchange.text << "\nanswers\n"
                       << outcome.out << outcome.err;
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
    for (size_t i = from; !came && i < all.size(); ++i) others += compact(all[i]);
    EXPECT_TRUE(came) << at(example.line) << ": does not come; what came:\n" << others;
  }

  void expectRows(const Example& example) {
    Words rows;
    const bool right = becomes([&] {
      try {
        SQLite::Database database = openDatabase(database_);
        database.exec("ATTACH '" + events_.string() + "' AS guide");
        SQLite::Statement query(database, example.sql);
        rows = rowsOf(query);
      } catch (const std::exception& exception) {
        rows = {exception.what()};
      }
      return rows == example.rows;
    });
    EXPECT_TRUE(right) << at(example.line) << ": " << testing::PrintToString(rows);
  }

  const protocol::Document document_ = protocol::readDocument(PROTOCOL_DOCUMENT);
};

TEST_F(ProtocolTest, EveryExampleIsTrue) {
  broadcastLineups({"--start", kProtocolStart});
  startService(kFast, {"--fast", "--clock", kProtocolStart});
  startWatch({"--json"});
  size_t before = 0;  // number of callbacks before the commands that cause a callback
  for (const Example& example : document_.examples) {
    if (example.kind == "command") before = heard().size();
    for (const Exchange& exchange : example.exchanges) replay(exchange);
    if (example.kind == "callback") expectCallback(example, before);
    if (example.kind == "sql") expectRows(example);
  }

  // All callbacks match the table of callbacks.
  const auto kinds = protocol::callbackRows(document_);
  for (const Json::Value& message : heard()) {
    const auto row = kinds.find(message["cbtype"].asString());
    ASSERT_NE(kinds.end(), row) << "not in the document: " << compact(message);
    EXPECT_EQ(protocol::keys(protocol::cell(*row->second, "keys")), protocol::typesOf(message))
        << at(row->second->line) << ": " << compact(message);
    EXPECT_EQ("yes", protocol::cell(*row->second, "PC")) << at(row->second->line);
  }

  // Columns of the database tables.
  for (const auto& [heading, file, tables] :
       {std::tuple<const char*, std::filesystem::path, Words>{
            "### Channel tables", database_, {"channel_data_t", "channel_data_c"}},
        {"### Guide tables", events_, {"event_t", "event_c"}}}) {
    Words documented;
    for (const TableRow& row : document_.rows) {
      if (row.heading != heading || row.first != "column") continue;
      const std::string type = protocol::cell(row, "type");
      documented.push_back(protocol::names(protocol::cell(row, "column")).at(0) + '|' +
                           (type == "none" ? "" : type));
    }
    for (const std::string& table : tables) {
      EXPECT_EQ(documented,
                rowsOf(file, "SELECT name, type FROM pragma_table_info('" + table + "')"))
          << heading;
    }
  }
}

}  // namespace
