#include "json_node.h"

#include <algorithm>

#include "bytes.h"
#include "text.h"

namespace psipmux {

std::string printable(std::string text) {
  for (char& c : text) {
    if (c < ' ' || c > '~') c = '?';
  }
  return text;
}

bool isLanguage(const std::string& text) {
  return text.size() == 3 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= 'a' && c <= 'z'; });
}

void Node::fail(const std::string& reason) const {
  throw LineupError(file_ + ": " + (path_.empty() ? "" : path_ + ": ") + reason);
}

void Node::allowKeys(std::initializer_list<const char*> allowed) const {
  for (const std::string& key : keys()) {
    if (std::none_of(allowed.begin(), allowed.end(), [&](const char* k) { return key == k; })) {
      at(printable(key)).fail("unknown key");
    }
  }
}

void Node::forbidKeys(std::initializer_list<const char*> forbidden,
                      const std::string& reason) const {
  for (const char* key : forbidden) {
    if (has(key)) at(key).fail(reason);
  }
}

Node Node::at(const std::string& key) const {
  return Node(value_[key], file_, path_.empty() ? key : path_ + "." + key);
}

std::vector<std::string> Node::keys() const {
  if (!value_.isObject()) fail("must be an object");
  return value_.getMemberNames();
}

int64_t Node::integer(const char* key, int64_t low, int64_t high) const {
  const Node node = required(key);
  if (!node.value_.isInt64()) node.fail("must be an integer");
  const int64_t number = node.value_.asInt64();
  if (number < low || number > high) {
    node.fail("must be " + std::to_string(low) + " to " + std::to_string(high));
  }
  return number;
}

int64_t Node::integerOr(const char* key, int64_t low, int64_t high, int64_t otherwise) const {
  return has(key) ? integer(key, low, high) : otherwise;
}

bool Node::booleanOr(const char* key, bool otherwise) const {
  if (!has(key)) return otherwise;
  const Node node = at(key);
  if (!node.value_.isBool()) node.fail("must be true or false");
  return node.value_.asBool();
}

std::string Node::string() const {
  if (!isString()) fail("must be a string");
  return value_.asString();
}

std::u16string Node::utf16() const {
  const auto text = utf8ToUtf16(string());
  if (!text) fail("is not valid UTF-8");
  for (const char16_t unit : *text) {
    if (unit < 0x20 || unit == 0x7F) fail("must not contain control characters");
  }
  return *text;
}

Text Node::localText(size_t limit) const {
  Text text;
  if (isString()) {
    text.push_back({"eng", utf16()});
  } else {
    for (const std::string& language : keys()) {
      if (!isLanguage(language)) at(printable(language)).fail("must be three lower-case letters");
      text.push_back({language, utf16(language.c_str())});
    }
    if (text.empty()) fail("must not be empty");
  }
  const size_t size = multipleString(text).size();
  if (size > limit) {
    fail("takes " + std::to_string(size) + " bytes, the table has room for " +
         std::to_string(limit));
  }
  return text;
}

std::vector<Node> Node::elements(const char* key, unsigned low, unsigned high) const {
  const Node node = required(key);
  if (!node.value_.isArray()) node.fail("must be an array");
  if (node.value_.size() < low || node.value_.size() > high) {
    node.fail("must have " + std::to_string(low) + " to " + std::to_string(high) + " elements");
  }
  std::vector<Node> elements;
  for (Json::ArrayIndex i = 0; i < node.value_.size(); ++i) {
    elements.emplace_back(node.value_[i], file_, node.path_ + "[" + std::to_string(i) + "]");
  }
  return elements;
}

std::vector<Node> Node::elementsOr(const char* key, unsigned low, unsigned high) const {
  return has(key) ? elements(key, low, high) : std::vector<Node>();
}

Node Node::required(const char* key) const {
  const Node node = at(key);
  if (!has(key)) node.fail("is missing");
  return node;
}

}  // namespace psipmux
