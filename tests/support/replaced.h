#ifndef ATSC_TESTS_SUPPORT_REPLACED_H_
#define ATSC_TESTS_SUPPORT_REPLACED_H_

#include <gtest/gtest.h>

#include <string>

// Replaces the first `from`, which must be there.
inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(std::string::npos, at) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

#endif  // ATSC_TESTS_SUPPORT_REPLACED_H_
