#pragma once

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lineup.h"

namespace psipmux {

/// A keyword of the lineup and its value.
struct Choice {
  const char* name;
  uint8_t value;
};

/// Replaces all but printable ASCII characters, so that an error that quotes a key or the file is a
/// single line.
std::string printable(std::string text);

/// Returns true if the text has the form of an ISO 639-2 code: three lower-case letters.
bool isLanguage(const std::string& text);

/// A JSON value with its file and path, which errors report. Refers to the document. All functions
/// throw LineupError if the value does not meet their conditions.
class Node {
 public:
  Node(const Json::Value& value, std::string file, std::string path)
      : value_(value), file_(std::move(file)), path_(std::move(path)) {}

  const std::string& path() const { return path_; }
  [[noreturn]] void fail(const std::string& reason) const;

  void allowKeys(std::initializer_list<const char*> allowed) const;
  void forbidKeys(std::initializer_list<const char*> forbidden, const std::string& reason) const;
  bool has(const char* key) const { return value_.isMember(key); }
  bool isString() const { return value_.isString(); }
  Node at(const std::string& key) const;
  /// Returns the keys of an object in ascending order.
  std::vector<std::string> keys() const;

  int64_t integer(const char* key, int64_t low, int64_t high) const;
  int64_t integerOr(const char* key, int64_t low, int64_t high, int64_t otherwise) const;
  bool booleanOr(const char* key, bool otherwise) const;
  std::string string() const;
  std::string string(const char* key) const { return required(key).string(); }
  /// Returns a string. Control characters are an error.
  std::u16string utf16() const;
  std::u16string utf16(const char* key) const { return required(key).utf16(); }
  /// Returns a text: a string is English, an object has a string for each language. The text must
  /// not exceed `limit` bytes as a multiple_string_structure.
  Text localText(size_t limit) const;
  Text localText(const char* key, size_t limit) const { return required(key).localText(limit); }
  /// Returns an empty text if the key is missing.
  Text localTextOr(const char* key, size_t limit) const {
    return has(key) ? localText(key, limit) : Text();
  }

  /// Returns the value of the keyword that the string is.
  template <size_t N>
  uint8_t oneOf(const char* key, const Choice (&choices)[N]) const {
    const std::string text = string(key);
    std::string names;
    for (const Choice& choice : choices) {
      if (text == choice.name) return choice.value;
      names += (names.empty() ? "" : ", ") + std::string(choice.name);
    }
    at(key).fail("must be one of " + names);
  }

  /// Returns the elements of an array, which must have `low` to `high` of them.
  std::vector<Node> elements(const char* key, unsigned low, unsigned high) const;
  /// Returns an empty vector if the key is missing.
  std::vector<Node> elementsOr(const char* key, unsigned low, unsigned high) const;

 private:
  Node required(const char* key) const;

  const Json::Value& value_;
  std::string file_;
  std::string path_;
};

/// Checks that values are unique. Stores the path of each value for the error message.
class Unique {
 public:
  void add(uint32_t value, const Node& node) {
    const auto [it, inserted] = first_.emplace(value, node.path());
    if (!inserted) node.fail("already used by " + it->second);
  }

 private:
  std::map<uint32_t, std::string> first_;
};

}  // namespace psipmux
