#include "json_node.h"

#include <algorithm>

#include "bytes.h"
#include "text.h"

namespace psipmux {

std::string Printable(std::string text) {
  for (char& c : text) {
    if (c < ' ' || c > '~') c = '?';
  }
  return text;
}

bool IsLanguage(const std::string& text) {
  return text.size() == 3 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= 'a' && c <= 'z'; });
}

void Node::Fail(const std::string& reason) const {
  throw LineupError(file_ + ": " + (path_.empty() ? "" : path_ + ": ") + reason);
}

void Node::AllowKeys(std::initializer_list<const char*> keys) const {
  for (const std::string& key : Keys()) {
    if (std::none_of(keys.begin(), keys.end(), [&](const char* k) { return key == k; })) {
      At(Printable(key)).Fail("unknown key");
    }
  }
}

void Node::ForbidKeys(std::initializer_list<const char*> keys, const std::string& reason) const {
  for (const char* key : keys) {
    if (Has(key)) At(key).Fail(reason);
  }
}

Node Node::At(const std::string& key) const {
  return Node(value_[key], file_, path_.empty() ? key : path_ + "." + key);
}

std::vector<std::string> Node::Keys() const {
  if (!value_.isObject()) Fail("must be an object");
  return value_.getMemberNames();
}

int64_t Node::Integer(const char* key, int64_t low, int64_t high) const {
  const Node node = Required(key);
  if (!node.value_.isInt64()) node.Fail("must be an integer");
  const int64_t number = node.value_.asInt64();
  if (number < low || number > high) {
    node.Fail("must be " + std::to_string(low) + " to " + std::to_string(high));
  }
  return number;
}

int64_t Node::IntegerOr(const char* key, int64_t low, int64_t high, int64_t otherwise) const {
  return Has(key) ? Integer(key, low, high) : otherwise;
}

bool Node::BooleanOr(const char* key, bool otherwise) const {
  if (!Has(key)) return otherwise;
  const Node node = At(key);
  if (!node.value_.isBool()) node.Fail("must be true or false");
  return node.value_.asBool();
}

std::string Node::String() const {
  if (!IsString()) Fail("must be a string");
  return value_.asString();
}

std::u16string Node::Utf16() const {
  const auto text = Utf8ToUtf16(String());
  if (!text) Fail("is not valid UTF-8");
  for (const char16_t unit : *text) {
    if (unit < 0x20 || unit == 0x7F) Fail("must not contain control characters");
  }
  return *text;
}

Text Node::LocalText(size_t limit) const {
  Text text;
  if (IsString()) {
    text.push_back({"eng", Utf16()});
  } else {
    for (const std::string& language : Keys()) {
      if (!IsLanguage(language)) At(Printable(language)).Fail("must be three lower-case letters");
      text.push_back({language, Utf16(language.c_str())});
    }
    if (text.empty()) Fail("must not be empty");
  }
  const size_t size = MultipleString(text).size();
  if (size > limit) {
    Fail("takes " + std::to_string(size) + " bytes, the table has room for " +
         std::to_string(limit));
  }
  return text;
}

std::vector<Node> Node::Elements(const char* key, unsigned low, unsigned high) const {
  const Node node = Required(key);
  if (!node.value_.isArray()) node.Fail("must be an array");
  if (node.value_.size() < low || node.value_.size() > high) {
    node.Fail("must have " + std::to_string(low) + " to " + std::to_string(high) + " elements");
  }
  std::vector<Node> elements;
  for (Json::ArrayIndex i = 0; i < node.value_.size(); ++i) {
    elements.emplace_back(node.value_[i], file_, node.path_ + "[" + std::to_string(i) + "]");
  }
  return elements;
}

std::vector<Node> Node::ElementsOr(const char* key, unsigned low, unsigned high) const {
  return Has(key) ? Elements(key, low, high) : std::vector<Node>();
}

Node Node::Required(const char* key) const {
  const Node node = At(key);
  if (!Has(key)) node.Fail("is missing");
  return node;
}

}  // namespace psipmux
