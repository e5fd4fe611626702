// Runs tv_backend as the TV application.
#ifndef ATSC_TESTS_APPS_BACKEND_FIXTURE_H_
#define ATSC_TESTS_APPS_BACKEND_FIXTURE_H_

#include <filesystem>
#include <memory>

#include "system_fixture.h"

class BackendTest : public SystemTest {
 protected:
  std::unique_ptr<Process> startBackend() {
    auto backend = start({TV_BACKEND, database_, events_, hold_});
    EXPECT_TRUE(backend->says("ready")) << backend->err();
    return backend;
  }

  const std::filesystem::path hold_ = folder_ / "hold";
};

#endif  // ATSC_TESTS_APPS_BACKEND_FIXTURE_H_
