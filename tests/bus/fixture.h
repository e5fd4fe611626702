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
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "atsc_service_db.h"
#include "command.h"
#include "fake.h"
#include "files.h"
#include "rows.h"
#include "service/server/atsc_server_service.h"
#include "temporary_folder.h"
#include "wait.h"

void _ATSC_Service_Task_init();  // NOLINT(readability-identifier-naming)

using Lines = std::vector<std::string>;

class LibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("ATSC_CNAHHEL_DB", path_.c_str(), 1);
    setenv("ATSC_EVENT_DB", guide_.c_str(), 1);
    setenv("ATSC_CUSTOM_DB_COLUMN_FILE", (folder_ / "columns.json").c_str(), 1);
    *gChannel_DB_path = path_;
    atsc_service_db_custom_column_count = 0;
    fake::reset();
  }

  void TearDown() override { fake::reset(); }

  // Forgets the calls; a channel plays, with the parental control of the test.
  void restart() const {
    fake::reset();
    fake::setParental(parental_);
    fake::setCurrent(fake::service(7, 1, 177000000, "SEVEN"), AI_INPUT_TERRESTRIAL);
  }

  // Starts the callback queues, which a process can do only once.
  static void startQueues() {
    static const bool started = (_ATSC_Service_Task_init(), true);
    (void)started;
  }

  // Returns all values of a statement's rows, with columns joined by '|'.
  Lines rows(const std::string& sql) const { return rowsOf(path_, sql); }
  Lines guideRows(const std::string& sql) const { return rowsOf(guide_, sql); }

  void execute(const std::string& sql) const { ::execute(path_, sql); }

  // Sends a command like a TV application.
  static int send(const std::string& command) {
    return ATSC_TransmitServiceClientJSONCommand(command.c_str(), nullptr);
  }

  // Sends "CLASS COMMAND MEMBERS".
  static Answer ask(const std::string& request) {
    const size_t members = request.find(' ', request.find(' ') + 1);
    return transmit(members == std::string::npos
                        ? command(request)
                        : command(request.substr(0, members), request.substr(members + 1)));
  }

  static Json::Value json(const std::string& text) { return parsed(text); }

  // Returns a JSON text without blanks.
  static std::string plain(const std::string& text) {
    if (text.empty()) return "";
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    writer["emitUTF8"] = true;
    return Json::writeString(writer, json(text));
  }

  // Returns the lines that start with one of the prefixes.
  static Lines startingWith(const Lines& prefixes, const Lines& lines) {
    Lines selected;
    for (const std::string& line : lines) {
      for (const std::string& prefix : prefixes) {
        if (line.rfind(prefix, 0) == 0) selected.push_back(line);
      }
    }
    return selected;
  }

  // Returns the middleware calls that start with one of the prefixes.
  static Lines callsOf(const Lines& prefixes) { return startingWith(prefixes, fake::calls()); }

  // Returns the log lines of a level.
  static Lines logsOf(const std::string& level) {
    Lines lines = startingWith({level + " "}, fake::logs());
    for (std::string& line : lines) line.erase(0, level.size() + 1);
    return lines;
  }

  fake::Parental parental_;
  const TemporaryFolder temporary_;
  const std::filesystem::path folder_ = temporary_.path();
  const std::string path_ = folder_ / "channels.db3";
  const std::string guide_ = folder_ / "events.db";
};

// Returns the rows of a text, one in each line or continued in lines that begin with blanks. Cells
// are separated by '|'; missing ones are empty.
inline std::vector<Lines> tableOf(const std::string& text, size_t columns) {
  std::vector<Lines> rows;
  std::istringstream lines(std::regex_replace(text, std::regex("\n +"), " "));
  for (std::string line; std::getline(lines >> std::ws, line);) {
    std::istringstream cells(line);
    rows.emplace_back();
    for (std::string cell; std::getline(cells >> std::ws, cell, '|');) {
      rows.back().push_back(cell.substr(0, cell.find_last_not_of(' ') + 1));
    }
    rows.back().resize(columns);
  }
  return rows;
}

inline std::string joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : " ") + line;
  return text;
}

#endif  // ATSC_TESTS_BUS_FIXTURE_H_
