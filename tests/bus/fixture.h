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
#include "fake.h"
#include "service/server/atsc_server_service.h"
#include "temporary_folder.h"

// Returns the text of a command, without the braces: {"class":C,"command":N} and further members.
inline std::string command(const std::string& name, const std::string& members = "") {
  const size_t space = name.find(' ');
  return "{\"class\":\"" + name.substr(0, space) + "\",\"command\":\"" + name.substr(space + 1) +
         "\"" + (members.empty() ? "" : "," + members) + "}";
}

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
  std::vector<std::string> rows(const std::string& sql) const {
    SQLite::Database database(path_);
    SQLite::Statement statement(database, sql);
    std::vector<std::string> lines;
    while (statement.executeStep()) {
      std::string line;
      for (int i = 0; i < statement.getColumnCount(); ++i) {
        line += (i > 0 ? "|" : "") + statement.getColumn(i).getString();
      }
      lines.push_back(line);
    }
    return lines;
  }

  void execute(const std::string& sql) const {
    SQLite::Database(path_, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec(sql);
  }

  static void writeFile(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
  }

  // Sends a command like a TV application.
  static int send(const std::string& command) {
    return ATSC_TransmitServiceClientJSONCommand(command.c_str(), nullptr);
  }

  struct Answer {
    int result;
    std::string text;  // "" for none
  };

  static Answer ask(const std::string& name, const std::string& members = "") {
    char* text = nullptr;
    const int result = ATSC_TransmitServiceClientJSONCommand(command(name, members).c_str(), &text);
    Answer answer{result, text != nullptr ? text : ""};
    free(text);
    return answer;
  }

  static Json::Value json(const std::string& text) {
    Json::Value value;
    Json::Reader().parse(text, value);
    return value;
  }

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
