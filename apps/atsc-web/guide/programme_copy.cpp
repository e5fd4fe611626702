#include "guide/programme_copy.h"

#include <string_view>

namespace web {
namespace {

// The triggers keep the index up to date: it holds no texts of its own.
constexpr const char* kLayout = R"(
    PRAGMA journal_mode = OFF;
    PRAGMA synchronous = OFF;
    PRAGMA cache_size = -1024;
    CREATE TABLE programme (id INTEGER PRIMARY KEY, title TEXT, rating TEXT, description TEXT);
    CREATE VIRTUAL TABLE words USING fts5(title, description, content = 'programme',
        content_rowid = 'id', tokenize = 'unicode61 remove_diacritics 2');
    INSERT INTO words (words, rank) VALUES ('hashsize', 262144);
    CREATE TRIGGER added AFTER INSERT ON programme BEGIN
      INSERT INTO words (rowid, title, description) VALUES (new.id, new.title, new.description);
    END;
    CREATE TRIGGER removed AFTER DELETE ON programme BEGIN
      INSERT INTO words (words, rowid, title, description)
          VALUES ('delete', old.id, old.title, old.description);
    END;)";

SQLite::Database newCopy() {
  SQLite::Database database("",
                            SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX);
  database.exec(kLayout);
  return database;
}

// Each word becomes a text of FTS5, in which only the quote has a meaning.
std::string expressionOf(std::string_view words) {
  std::string expression;
  bool isInWord = false;
  for (const char c : words) {
    const bool isBlank = static_cast<unsigned char>(c) <= ' ';
    if (isBlank && isInWord) expression += "\"* ";
    if (!isBlank) {
      if (!isInWord) expression += '"';
      expression.append(c == '"' ? 2 : 1, c);
    }
    isInWord = !isBlank;
  }
  return isInWord ? expression + "\"*" : expression;
}

}  // namespace

ProgrammeCopy::ProgrammeCopy()
    : database_(newCopy()),
      insert_(database_,
              "INSERT INTO programme (id, title, rating, description) VALUES (?, ?, ?, ?)"),
      remove_(database_, "DELETE FROM programme WHERE id = ?"),
      title_(database_, "SELECT title, rating FROM programme WHERE id = ?"),
      texts_(database_, "SELECT title, rating, description FROM programme WHERE id = ?"),
      search_(database_, "SELECT rowid FROM words WHERE words MATCH ?") {}

void ProgrammeCopy::insert(const std::vector<ProgrammeTexts>& programmes) {
  SQLite::Transaction transaction(database_);
  for (const ProgrammeTexts& programme : programmes) {
    insert_.bind(1, programme.id);
    insert_.bindNoCopy(2, programme.title);
    insert_.bindNoCopy(3, programme.rating);
    insert_.bindNoCopy(4, programme.description);
    insert_.exec();
    insert_.reset();
  }
  transaction.commit();
}

void ProgrammeCopy::remove(const uint32_t* ids, size_t count) {
  SQLite::Transaction transaction(database_);
  for (size_t i = 0; i < count; ++i) {
    remove_.bind(1, ids[i]);
    remove_.exec();
    remove_.reset();
  }
  transaction.commit();
}

ProgrammeTexts ProgrammeCopy::titleOf(uint32_t id) {
  ProgrammeTexts texts;
  title_.tryReset();  // an error may have left it running
  title_.bind(1, id);
  if (title_.executeStep()) {
    texts = {id, title_.getColumn(0).getString(), title_.getColumn(1).getString(), {}};
  }
  title_.reset();
  return texts;
}

ProgrammeTexts ProgrammeCopy::textsOf(uint32_t id) {
  ProgrammeTexts texts;
  texts_.tryReset();
  texts_.bind(1, id);
  if (texts_.executeStep()) {
    texts = {id, texts_.getColumn(0).getString(), texts_.getColumn(1).getString(),
             texts_.getColumn(2).getString()};
  }
  texts_.reset();
  return texts;
}

void ProgrammeCopy::search(const std::string& words, const std::function<void(uint32_t)>& found) {
  const std::string expression = expressionOf(words);
  if (expression.empty()) return;
  search_.bindNoCopy(1, expression);
  try {
    while (search_.executeStep()) found(static_cast<uint32_t>(search_.getColumn(0).getInt64()));
  } catch (...) {
    search_.tryReset();
    throw;
  }
  search_.reset();
}

}  // namespace web
