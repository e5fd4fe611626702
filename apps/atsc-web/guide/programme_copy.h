// The texts of programmes in a database of this program, with an index of their words.
#ifndef ATSC_WEB_GUIDE_PROGRAMME_COPY_H_
#define ATSC_WEB_GUIDE_PROGRAMME_COPY_H_

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace web {

struct ProgrammeTexts {
  uint32_t id = 0;
  std::string title;  // texts are valid UTF-8
  std::string rating;
  std::string description;
};

// A temporary file of SQLite, which nobody else sees and which is gone with the process. One thread
// at a time. Functions throw SQLite::Exception; what was written is then lost.
class ProgrammeCopy {
 public:
  ProgrammeCopy();

  void insert(const std::vector<ProgrammeTexts>& programmes);
  void remove(const uint32_t* ids, size_t count);

  // Return texts that were inserted; those of an unknown id are empty.
  ProgrammeTexts titleOf(uint32_t id);  // without the description
  ProgrammeTexts textsOf(uint32_t id);

  // Calls `found` with the id of each programme whose title or description has words that begin
  // with the words of `words`, all of them. Ignores case and diacritics.
  void search(const std::string& words, const std::function<void(uint32_t)>& found);

 private:
  SQLite::Database database_;
  SQLite::Statement insert_, remove_, title_, texts_, search_;
};

}  // namespace web

#endif  // ATSC_WEB_GUIDE_PROGRAMME_COPY_H_
