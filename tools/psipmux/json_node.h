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

/// A word of the lineup and the number it stands for.
struct Choice {
  const char* name;
  uint8_t value;
};

/// Keys and file text may hold control characters; an error stays one printable line.
std::string printable(std::string text);

/// Whether the text is three lower-case letters, as the codes of ISO 639-2 are.
bool isLanguage(const std::string& text);

/// A value of the document together with where it stands, so that every error can say so. Refers
/// to the document. All functions throw LineupError for what does not fit.
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
  /// The keys of an object, ascending.
  std::vector<std::string> keys() const;

  int64_t integer(const char* key, int64_t low, int64_t high) const;
  int64_t integerOr(const char* key, int64_t low, int64_t high, int64_t otherwise) const;
  bool booleanOr(const char* key, bool otherwise) const;
  std::string string() const;
  std::string string(const char* key) const { return required(key).string(); }
  /// Without control characters.
  std::u16string utf16() const;
  std::u16string utf16(const char* key) const { return required(key).utf16(); }
  /// A string is English, an object has a string for each language. At most `limit` bytes as a
  /// multiple_string_structure.
  Text localText(size_t limit) const;
  Text localText(const char* key, size_t limit) const { return required(key).localText(limit); }
  /// Empty when the key is missing.
  Text localTextOr(const char* key, size_t limit) const {
    return has(key) ? localText(key, limit) : Text();
  }

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

  std::vector<Node> elements(const char* key, unsigned low, unsigned high) const;
  /// None when the key is missing.
  std::vector<Node> elementsOr(const char* key, unsigned low, unsigned high) const;

 private:
  Node required(const char* key) const;

  const Json::Value& value_;
  std::string file_;
  std::string path_;
};

/// Values that may occur once only, with the place of their first use.
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
