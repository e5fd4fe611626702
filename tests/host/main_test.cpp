// The main program of the tests: runs them, or plays a role as one of their helper processes.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "role.h"
#include "temporary_folder.h"

int main(int argc, char** argv) {
  if (argc > 2 && std::string(argv[1]) == "--role") {
    const auto role = roles().find(argv[2]);
    return role != roles().end() ? role->second({argv + 3, argv + argc}) : 98;
  }
  // The state of the receiver under test, separate from other receivers. Helper processes share it.
  // The receiver stores it when the process exits.
  static const TemporaryFolder state;
  setenv("ATSC_HOST_STATE", (state.path() / "state").c_str(), 1);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
