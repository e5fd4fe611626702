// Parser of docs/protocol.md for the tests: its examples in order, and its tables.
#ifndef ATSC_TESTS_SUPPORT_PROTOCOL_DOCUMENT_H_
#define ATSC_TESTS_SUPPORT_PROTOCOL_DOCUMENT_H_

#include <json/json.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace protocol {

// A command with its reply and result: the lines "> ", "< " and, unless the result is 0, "= " of a
// block.
struct Exchange {
  int line;
  std::string text;
  Json::Value command;
  std::string replyText;
  Json::Value reply;  // null for none; elided values are kElided
  int result = 0;
};

// A fenced block that is an example.
struct Example {
  std::string kind;  // "command", "callback" or "sql"
  int line;
  std::vector<Exchange> exchanges;
  Json::Value callback;
  std::string sql;                // with its parameters
  std::vector<std::string> rows;  // columns joined by '|'
};

struct TableRow {
  int line;
  std::string heading;  // heading of the section
  std::string first;    // first cell of the table's header
  std::map<std::string, std::string> cells;
};

struct Document {
  std::vector<Example> examples;
  std::vector<TableRow> rows;
};

// Replaces values that are elided by "...".
inline constexpr const char* kElided = "...";

inline std::string at(int line) { return "docs/protocol.md:" + std::to_string(line); }

// Parses a JSON text in which "..." can replace a value, or further elements of a list.
inline Json::Value readJson(const std::string& text, int line) {
  static const std::regex elided(R"(([,:\[])\.\.\.)");
  Json::Value value;
  std::string errors;
  std::istringstream stream(std::regex_replace(text, elided, "$1\"...\""));
  if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &errors))
    throw std::runtime_error(at(line) + ": no JSON: " + errors);
  return value;
}

// Returns all texts in backticks.
inline std::vector<std::string> names(const std::string& cell) {
  static const std::regex name("`([^`]*)`");
  return {std::sregex_token_iterator(cell.begin(), cell.end(), name, 1), {}};
}

// Returns the keys of a cell with their types: "`key` (type".
inline std::map<std::string, std::string> keys(const std::string& cell) {
  static const std::regex key("`([^`]*)` \\((string|integer|boolean|object|array)");
  std::map<std::string, std::string> all;
  for (std::sregex_iterator match(cell.begin(), cell.end(), key), end; match != end; ++match)
    all[(*match)[1]] = (*match)[2];
  return all;
}

// Returns what the keys of a cell are when a command omits them: "`key` (type, default".
inline std::map<std::string, std::string> defaults(const std::string& cell) {
  static const std::regex key("`([^`]*)` \\([a-z]+, ([^):]*)");
  std::map<std::string, std::string> all;
  for (std::sregex_iterator match(cell.begin(), cell.end(), key), end; match != end; ++match)
    all[(*match)[1]] = std::regex_replace((*match)[2].str(), std::regex("`"), "");
  return all;
}

// Reads a JSON file.
inline Json::Value readTable(const std::string& path) {
  std::ifstream file(path);
  Json::Value table;
  std::string errors;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), file, &table, &errors))
    throw std::runtime_error("cannot read " + path + ": " + errors);
  return table;
}

inline std::string typeOf(const Json::Value& value) {
  static const char* const kTypes[] = {"null",   "integer", "integer", "number",
                                       "string", "boolean", "array",   "object"};
  return kTypes[value.type()];
}

// Adds a line of a block to its example. `parameters` are those of SQL so far.
inline void addLine(Example& example, const std::string& line, int number,
                    std::map<std::string, std::string>& parameters) {
  static const std::regex set(R"re(\.parameter set (\S+) "?([^"]*)"?)re");
  const std::string mark = line.substr(0, 2), rest = line.substr(mark.size());
  std::vector<Exchange>& exchanges = example.exchanges;
  std::smatch parameter;
  if (example.kind == "callback") {
    example.callback = example.callback.asString() + line;
  } else if (mark == "> ") {
    exchanges.push_back({number, rest, readJson(rest, number), "", {}, 0});
  } else if (mark == "< ") {
    exchanges.at(exchanges.size() - 1).replyText += rest;
  } else if (mark == "= ") {
    exchanges.at(exchanges.size() - 1).result = std::stoi(rest);
  } else if (example.kind == "command") {
    throw std::runtime_error(at(number) + ": not a line of a command example");
  } else if (std::regex_match(line, parameter, set)) {
    parameters[parameter[1]] = parameter[2];
  } else if (mark == "--") {
    example.rows.push_back(line.substr(3));
  } else {
    example.sql += line + '\n';
    for (const auto& [name, value] : parameters)
      example.sql = std::regex_replace(example.sql, std::regex(name + "\\b"), value);
  }
}

inline Document readDocument(const std::string& path) {
  static const std::regex bar(" *\\| *");
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path);
  Document document;
  std::string heading;
  std::vector<std::string> header;
  std::map<std::string, std::string> parameters;
  bool fenced = false;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.rfind("```", 0) == 0) {
      fenced = !fenced;
      parameters.clear();
      if (fenced) document.examples.push_back({line.substr(3), number, {}, {}, "", {}});
    } else if (fenced) {
      addLine(document.examples.back(), line, number, parameters);
    } else if (line[0] == '#') {
      heading = line;
    } else if (line[0] != '|') {
      header.clear();
    } else if (line.rfind("|---", 0) != 0) {
      const std::vector<std::string> cells(
          std::sregex_token_iterator(line.begin() + 2, line.end(), bar, -1), {});
      if (header.empty()) {
        header = cells;
        continue;
      }
      document.rows.push_back({number, heading, header[0], {}});
      for (size_t i = 0; i < cells.size(); ++i) document.rows.back().cells[header.at(i)] = cells[i];
    }
  }
  for (Example& example : document.examples) {
    if (example.kind == "callback")
      example.callback = readJson(example.callback.asString(), example.line);
    for (Exchange& exchange : example.exchanges)
      if (!exchange.replyText.empty()) exchange.reply = readJson(exchange.replyText, exchange.line);
  }
  return document;
}

// Returns the text of a row in the column `name`.
inline const std::string& cell(const TableRow& row, const std::string& name) {
  return row.cells.at(name);
}

// Returns the rows of the tables whose first column is `first`, by each name there.
inline std::multimap<std::string, const TableRow*> rowsBy(const std::string& first,
                                                          const Document& document) {
  std::multimap<std::string, const TableRow*> rows;
  for (const TableRow& row : document.rows) {
    if (row.first == first)
      for (const std::string& name : names(cell(row, first))) rows.emplace(name, &row);
  }
  return rows;
}

// Returns the row of every command by "CLASS COMMAND". The headings name the classes.
inline std::multimap<std::string, const TableRow*> commandRows(const Document& document) {
  std::multimap<std::string, const TableRow*> rows;
  for (const auto& [name, row] : rowsBy("command", document))
    for (const std::string& group : names(row->heading)) rows.emplace(group + ' ' + name, row);
  return rows;
}

// Returns the row of every kind of callback.
inline std::multimap<std::string, const TableRow*> callbackRows(const Document& document) {
  return rowsBy("kind", document);
}

// Returns the types of a message's members, except those of all messages.
inline std::map<std::string, std::string> typesOf(const Json::Value& message) {
  std::map<std::string, std::string> types;
  for (const std::string& key : message.getMemberNames())
    if (key != "class" && key != "cbtype" && key != "command") types[key] = typeOf(message[key]);
  return types;
}

}  // namespace protocol

#endif  // ATSC_TESTS_SUPPORT_PROTOCOL_DOCUMENT_H_
