#pragma once

#include <optional>
#include <string>

namespace psipmux {

/// Converts UTF-8 to UTF-16. Returns nothing for malformed input: truncated or overlong sequences,
/// encoded surrogates and values above U+10FFFF.
std::optional<std::u16string> utf8ToUtf16(const std::string& text);

}  // namespace psipmux
