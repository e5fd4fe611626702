// Writes large JSON answers in one pass. A tree of values for 4,000 channels would take more memory
// than the rest of the program.
#ifndef ATSC_WEB_GUIDE_JSON_TEXT_H_
#define ATSC_WEB_GUIDE_JSON_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace web {

// The caller opens and closes the brackets; commas are set here. Texts have to be valid UTF-8.
class JsonText {
 public:
  JsonText& open(char bracket);
  JsonText& close(char bracket);
  JsonText& key(std::string_view name);
  JsonText& text(std::string_view value);
  JsonText& number(int64_t value);
  JsonText& raw(std::string_view json);  // a whole value

  JsonText& text(std::string_view name, std::string_view value) { return key(name).text(value); }
  JsonText& number(std::string_view name, int64_t value) { return key(name).number(value); }
  JsonText& boolean(std::string_view name, bool value) {
    return key(name).raw(value ? "true" : "false");
  }

  size_t size() const { return text_.size(); }
  std::string take() { return std::move(text_); }
  void reserve(size_t size) { text_.reserve(size); }

 private:
  void separate();
  void quote(std::string_view value);

  std::string text_;
};

}  // namespace web

#endif  // ATSC_WEB_GUIDE_JSON_TEXT_H_
