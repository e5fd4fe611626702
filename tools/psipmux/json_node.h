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
std::string Printable(std::string text);

/// Whether the text is three lower-case letters, as the codes of ISO 639-2 are.
bool IsLanguage(const std::string& text);

/// A value of the document together with where it stands, so that every error can say so. Refers
/// to the document. All functions throw LineupError for what does not fit.
class Node {
 public:
  Node(const Json::Value& value, std::string file, std::string path)
      : value_(value), file_(std::move(file)), path_(std::move(path)) {}

  const std::string& Path() const { return path_; }
  [[noreturn]] void Fail(const std::string& reason) const;

  void AllowKeys(std::initializer_list<const char*> keys) const;
  void ForbidKeys(std::initializer_list<const char*> keys, const std::string& reason) const;
  bool Has(const char* key) const { return value_.isMember(key); }
  bool IsString() const { return value_.isString(); }
  Node At(const std::string& key) const;
  /// The keys of an object, ascending.
  std::vector<std::string> Keys() const;

  int64_t Integer(const char* key, int64_t low, int64_t high) const;
  int64_t IntegerOr(const char* key, int64_t low, int64_t high, int64_t otherwise) const;
  bool BooleanOr(const char* key, bool otherwise) const;
  std::string String() const;
  std::string String(const char* key) const { return Required(key).String(); }
  /// Without control characters.
  std::u16string Utf16() const;
  std::u16string Utf16(const char* key) const { return Required(key).Utf16(); }
  /// A string is English, an object has a string for each language. At most `limit` bytes as a
  /// multiple_string_structure.
  Text LocalText(size_t limit) const;
  Text LocalText(const char* key, size_t limit) const { return Required(key).LocalText(limit); }
  /// Empty when the key is missing.
  Text LocalTextOr(const char* key, size_t limit) const {
    return Has(key) ? LocalText(key, limit) : Text();
  }

  template <size_t N>
  uint8_t OneOf(const char* key, const Choice (&choices)[N]) const {
    const std::string text = String(key);
    std::string names;
    for (const Choice& choice : choices) {
      if (text == choice.name) return choice.value;
      names += (names.empty() ? "" : ", ") + std::string(choice.name);
    }
    At(key).Fail("must be one of " + names);
  }

  std::vector<Node> Elements(const char* key, unsigned low, unsigned high) const;
  /// None when the key is missing.
  std::vector<Node> ElementsOr(const char* key, unsigned low, unsigned high) const;

 private:
  Node Required(const char* key) const;

  const Json::Value& value_;
  std::string file_;
  std::string path_;
};

/// Values that may occur once only, with the place of their first use.
class Unique {
 public:
  void Add(uint32_t value, const Node& node) {
    const auto [it, inserted] = first_.emplace(value, node.Path());
    if (!inserted) node.Fail("already used by " + it->second);
  }

 private:
  std::map<uint32_t, std::string> first_;
};

}  // namespace psipmux
