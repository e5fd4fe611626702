// Parser of docs/protocol.md for the tests: its examples in order, and its tables.
#ifndef ATSC_TESTS_SUPPORT_PROTOCOL_DOCUMENT_H_
#define ATSC_TESTS_SUPPORT_PROTOCOL_DOCUMENT_H_

#include <json/json.h>

#include <fstream>
#include <map>
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
  Json::Value reply;  // null for none; elided values are kElided
  int result = 0;
};

struct Statement {
  std::string sql;
  std::map<std::string, std::string> parameters;  // ":name" and its value
  std::vector<std::string> rows;                  // columns joined by '|'
};

// A fenced block that is an example.
struct Example {
  enum Kind { kCommands, kCallback, kSql } kind;
  int line;
  std::vector<Exchange> exchanges;
  Json::Value callback;
  Statement statement;
};

struct TableRow {
  int line;
  std::string heading;              // heading of the section
  std::string first;                // first cell of the table's header
  std::vector<std::string> header;  // header of the table
  std::vector<std::string> cells;
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
  std::string full;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"' && (i == 0 || text[i - 1] != '\\')) quoted = !quoted;
    if (!quoted && text.compare(i, 3, kElided) == 0) {
      full += std::string("\"") + kElided + '"';
      i += 2;
    } else {
      full += text[i];
    }
  }
  Json::Value value;
  std::string errors;
  std::istringstream stream(full);
  if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &errors)) {
    throw std::runtime_error(at(line) + ": no JSON: " + errors);
  }
  return value;
}

// Calls `found` with each text in backticks and the text after it.
template <typename Found>
void forEachName(const std::string& cell, Found found) {
  size_t begin = cell.find('`');
  while (begin != std::string::npos) {
    const size_t end = cell.find('`', begin + 1);
    if (end == std::string::npos) return;
    found(cell.substr(begin + 1, end - begin - 1), cell.substr(end + 1));
    begin = cell.find('`', end + 1);
  }
}

// Returns all texts in backticks.
inline std::vector<std::string> names(const std::string& cell) {
  std::vector<std::string> all;
  forEachName(cell, [&](const std::string& name, const std::string&) { all.push_back(name); });
  return all;
}

// Returns the keys of a cell with their types: "`key` (type".
inline std::map<std::string, std::string> keys(const std::string& cell) {
  std::map<std::string, std::string> all;
  forEachName(cell, [&](const std::string& name, const std::string& rest) {
    for (const char* type : {"string", "integer", "boolean", "object", "array"}) {
      const std::string begin = std::string(" (") + type;
      if (rest.compare(0, begin.size(), begin) == 0) all[name] = type;
    }
  });
  return all;
}

inline std::string typeOf(const Json::Value& value) {
  return value.isString()     ? "string"
         : value.isBool()     ? "boolean"
         : value.isIntegral() ? "integer"
         : value.isObject()   ? "object"
         : value.isArray()    ? "array"
         : value.isNull()     ? "null"
                              : "number";
}

namespace detail {

inline bool begins(const std::string& line, const std::string& with) {
  return line.compare(0, with.size(), with) == 0;
}

// `reply` is the reply of the current command so far.
inline void addCommandLine(Example& example, const std::string& line, int number,
                           std::string& reply) {
  if (begins(line, "> ")) {
    const std::string text = line.substr(2);
    example.exchanges.push_back({number, text, readJson(text, number), {}, 0});
  } else if (begins(line, "< ") && !example.exchanges.empty()) {
    reply += line.substr(2);
  } else if (begins(line, "= ") && !example.exchanges.empty()) {
    example.exchanges.back().result = std::stoi(line.substr(2));
  } else {
    throw std::runtime_error(at(number) + ": not a line of a command example");
  }
}

// Stores the complete reply of the last command.
inline void endReply(Example& example, std::string& reply) {
  if (reply.empty()) return;
  Exchange& exchange = example.exchanges.back();
  exchange.reply = readJson(reply, exchange.line);
  reply.clear();
}

inline void addSqlLine(Statement& statement, const std::string& line, int number) {
  const std::string set = ".parameter set ";
  if (begins(line, set)) {
    // NAME NUMBER, or NAME "'TEXT'".
    const size_t blank = line.find(' ', set.size());
    std::string value = blank != std::string::npos ? line.substr(blank + 1) : "";
    if (value.size() > 4 && begins(value, "\"'")) value = value.substr(2, value.size() - 4);
    statement.parameters[line.substr(set.size(), blank - set.size())] = value;
  } else if (begins(line, "-- ")) {
    statement.rows.push_back(line.substr(3));
  } else if (statement.rows.empty()) {
    statement.sql += line + '\n';
  } else {
    throw std::runtime_error(at(number) + ": behind the rows");
  }
}

inline std::vector<std::string> cells(const std::string& line) {
  std::vector<std::string> all;
  std::istringstream stream(line.substr(1));
  for (std::string cell; std::getline(stream, cell, '|');) {
    const size_t begin = cell.find_first_not_of(' ');
    const size_t end = cell.find_last_not_of(' ');
    all.push_back(begin == std::string::npos ? "" : cell.substr(begin, end - begin + 1));
  }
  return all;
}

}  // namespace detail

inline Document readDocument(const std::string& path) {
  static const std::map<std::string, Example::Kind> kinds = {{"```command", Example::kCommands},
                                                             {"```callback", Example::kCallback},
                                                             {"```sql", Example::kSql}};
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path);
  Document document;
  std::string heading;
  std::string text;  // incomplete reply or callback
  std::vector<std::string> header;
  bool fenced = false;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (fenced) {
      Example& example = document.examples.back();
      if (example.kind == Example::kCommands && !detail::begins(line, "<")) {
        // A line that does not belong to a reply ends the reply.
        detail::endReply(example, text);
      }
      if (line == "```") {
        fenced = false;
        if (example.kind == Example::kCallback) example.callback = readJson(text, example.line);
      } else if (example.kind == Example::kCommands) {
        detail::addCommandLine(example, line, number, text);
      } else if (example.kind == Example::kCallback) {
        text += line;
      } else {
        detail::addSqlLine(example.statement, line, number);
      }
      continue;
    }
    if (detail::begins(line, "```")) {
      const auto kind = kinds.find(line);
      if (kind == kinds.end()) throw std::runtime_error(at(number) + ": unknown kind of example");
      document.examples.push_back({kind->second, number, {}, {}, {}});
      fenced = true;
      text.clear();
    }
    if (detail::begins(line, "#")) heading = line;
    if (!detail::begins(line, "|")) {
      header.clear();
    } else if (header.empty()) {
      header = detail::cells(line);
    } else if (!detail::begins(line, "|---")) {
      document.rows.push_back({number, heading, header[0], header, detail::cells(line)});
    }
  }
  if (fenced) throw std::runtime_error(path + ": an example does not end");
  return document;
}

// Returns the text of a row in the column `name`.
inline std::string cell(const TableRow& row, const std::string& name) {
  for (size_t i = 0; i < row.header.size() && i < row.cells.size(); ++i) {
    if (row.header[i] == name) return row.cells[i];
  }
  throw std::runtime_error(at(row.line) + ": no cell \"" + name + "\"");
}

// Returns the row of every command by "CLASS COMMAND". The headings name the classes.
inline std::multimap<std::string, const TableRow*> commandRows(const Document& document) {
  std::multimap<std::string, const TableRow*> rows;
  for (const TableRow& row : document.rows) {
    if (row.first != "command") continue;
    for (const std::string& name : names(row.cells[0])) {
      for (const std::string& group : names(row.heading)) rows.emplace(group + ' ' + name, &row);
    }
  }
  return rows;
}

// Returns the row of every kind of callback.
inline std::multimap<std::string, const TableRow*> callbackRows(const Document& document) {
  std::multimap<std::string, const TableRow*> rows;
  for (const TableRow& row : document.rows) {
    if (row.first != "kind") continue;
    for (const std::string& name : names(row.cells[0])) rows.emplace(name, &row);
  }
  return rows;
}

// Returns the types of a message's members, except those of all messages.
inline std::map<std::string, std::string> typesOf(const Json::Value& message) {
  std::map<std::string, std::string> types;
  for (const std::string& key : message.getMemberNames()) {
    if (key != "class" && key != "cbtype" && key != "command") types[key] = typeOf(message[key]);
  }
  return types;
}

}  // namespace protocol

#endif  // ATSC_TESTS_SUPPORT_PROTOCOL_DOCUMENT_H_
