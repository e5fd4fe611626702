// Base of tests with a private database and an empty record of calls.
#ifndef ATSC_TESTS_BUS_FIXTURE_H_
#define ATSC_TESTS_BUS_FIXTURE_H_

#include <SQLiteCpp/SQLiteCpp.h>
#include <atsc/atsc_service.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "atsc_service_db.h"
#include "command.h"
#include "fake.h"
#include "files.h"
#include "rows.h"
#include "service/server/atsc_server_service.h"
#include "temporary_folder.h"

class LibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = (folder_ / "channels.db3").string();
    setenv("ATSC_CNAHHEL_DB", path_.c_str(), 1);
    setenv("ATSC_CUSTOM_DB_COLUMN_FILE", (folder_ / "columns.json").c_str(), 1);
    *gChannel_DB_path = path_;
    atsc_service_db_custom_column_count = 0;
    fake::reset();
  }

  void TearDown() override { fake::reset(); }

  // Returns all values of a statement's rows, with columns joined by '|'.
  std::vector<std::string> rows(const std::string& sql) const { return rowsOf(path_, sql); }

  void execute(const std::string& sql) const { ::execute(path_, sql); }

  // Sends a command like a TV application.
  static int send(const std::string& command) {
    return ATSC_TransmitServiceClientJSONCommand(command.c_str(), nullptr);
  }

  static Answer ask(const std::string& name, const std::string& members = "") {
    return transmit(command(name, members));
  }

  static Json::Value json(const std::string& text) { return parsed(text); }

  // Returns the middleware calls that start with one of the prefixes.
  static std::vector<std::string> callsOf(const std::vector<std::string>& prefixes) {
    std::vector<std::string> selected;
    for (const std::string& call : fake::calls()) {
      for (const std::string& prefix : prefixes) {
        if (call.rfind(prefix, 0) == 0) selected.push_back(call);
      }
    }
    return selected;
  }

  const TemporaryFolder temporary_;
  const std::filesystem::path folder_ = temporary_.path();
  std::string path_;
};

using Lines = std::vector<std::string>;

inline Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

#endif  // ATSC_TESTS_BUS_FIXTURE_H_
