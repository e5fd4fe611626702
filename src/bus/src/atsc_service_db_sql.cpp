// The texts of SQL commands, values, and failures.
#include <SQLiteCpp/Exception.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "atsc_log.h"
#include "atsc_service_db.h"

ATSC_LOGGER("atsc/service/db")

sqlString& sqlString::operator<<(long long number) {
  if (number >= 0 && number < 10) {
    text_ += static_cast<char>('0' + number);
    return *this;
  }
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  text_.append(digits, static_cast<size_t>(end - digits));
  return *this;
}

void sqlString::operator++(int) { text_ += ','; }

void sqlString::conStr(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  text_ += '\'';
  for (size_t quote; (quote = text.find('\'')) != std::string_view::npos;) {
    text_ += text.substr(0, quote + 1);
    text_ += '\'';
    text.remove_prefix(quote + 1);
  }
  text_ += text;
  text_ += '\'';
}

namespace atsc {

ColumnView view(const ColumnValue& value) {
  return std::visit([](const auto& content) -> ColumnView { return content; }, value);
}

void appendValue(sqlString& text, const ColumnView& value) {
  if (const int64_t* number = std::get_if<int64_t>(&value)) {
    text << *number;
  } else {
    text.conStr(std::get<std::string_view>(value));
  }
}

void bindValue(SQLite::Statement& statement, size_t position, const ColumnView& value) {
  const int index = static_cast<int>(position);
  if (const int64_t* number = std::get_if<int64_t>(&value)) {
    statement.bind(index, *number);
  } else {
    statement.bindNoCopy(index, std::get<std::string_view>(value).data());
  }
}

const char* channelTable(int input_type) {
  return input_type == AI_INPUT_TERRESTRIAL ? "channel_data_t" : "channel_data_c";
}

const char* eventTable(int input_type) {
  return input_type == AI_INPUT_TERRESTRIAL ? "event_t" : "event_c";
}

std::string eventDatabasePath() {
  const char* path = getenv("ATSC_EVENT_DB");
  return path != nullptr ? path : "/mtd_rwarea/ATSC_event.db";
}

std::string channelDatabasePath() {
  const char* path = getenv("ATSC_CNAHHEL_DB");
  return path != nullptr ? path : "/mtd_rwarea/ATSCChannelData.db3";
}

void printDatabaseError(const std::exception& error, const char* function, int line,
                        const std::string& command) {
  printf("[Error]SQLite exception: %s at %s_%d%s%s\n", error.what(), function, line,
         command.empty() ? "" : ", command:", command.c_str());
  fflush(stdout);
}

void logNotWritten(const LogPlace& place, const std::string& path, const std::exception& error) {
  std::string reason = error.what();
  const auto* failure = dynamic_cast<const SQLite::Exception*>(&error);
  if (failure != nullptr && failure->getErrorCode() == SQLITE_CANTOPEN) {
    // SQLite does not report the reason, and opening the file here would release the locks of this
    // process on it. The journal needs write access to the folder.
    struct stat status {};
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    errno = 0;
    if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) errno = EISDIR;
    if (errno == ENOENT || (errno == 0 && access(path.c_str(), R_OK | W_OK) == 0)) {
      errno = 0;
      (void)access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK);
    }
    if (errno != 0) reason += ": " + std::generic_category().message(errno);
  }
  ATSC_LOG_AT(place, Error, "%s is not written: %s", path.c_str(), reason.c_str());
}

std::string quotedIdentifier(const std::string& name) {
  std::string quoted = "`";
  for (const char c : name) {
    if (c == '`') quoted += '`';
    quoted += c;
  }
  return quoted + '`';
}

}  // namespace atsc
