// The main program of the tests: runs them, or plays a role as one of their helper processes.

#include <gtest/gtest.h>

#include <string>

#include "role.h"

int main(int argc, char** argv) {
  if (argc > 2 && std::string(argv[1]) == "--role") {
    const auto role = roles().find(argv[2]);
    return role != roles().end() ? role->second({argv + 3, argv + argc}) : 98;
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
