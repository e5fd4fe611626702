// The programmes of a source: a copy of the service's guide table, which pages read in place of it.
#ifndef ATSC_WEB_GUIDE_PROGRAMME_TABLE_H_
#define ATSC_WEB_GUIDE_PROGRAMME_TABLE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/source.h"
#include "guide/programme_copy.h"
#include "guide/service_file.h"
#include "guide/turns.h"

namespace web {

// Texts are valid UTF-8.
struct Programme {
  int64_t start = 0;  // Unix seconds
  int64_t duration = 0;
  std::string title;   // empty without a title
  std::string rating;  // empty without a rating
  std::string description;
  std::string genres;  // codes of A/65, separated by commas
  bool captioned = false;
  bool blocked = false;  // under the current parental settings
};

struct NowNext {
  std::optional<Programme> now;
  std::optional<Programme> next;
};

// What the guide of a source spans.
struct GuideSpan {
  int64_t first = 0;
  int64_t last = 0;
  size_t programmes = 0;
  std::vector<uint32_t> genres;  // the codes that occur, sorted
};

struct SearchQuery {
  std::string words;              // empty: any
  std::optional<uint32_t> genre;  // none: any
  int64_t after = 0;              // programmes that end later
  size_t limit = 100;
  std::function<bool(const std::string&)> accepts;  // the key of a channel
};

struct SearchHit {
  std::string key;
  Programme programme;  // without description
};

// refresh() and tidy() belong to one thread, the other functions to any. What a reader sees is
// always one content of the service's table. A window of time goes from its start to its end,
// without the end.
class ProgrammeTable {
 public:
  explicit ProgrammeTable(const apps::Source& source);
  ~ProgrammeTable();

  // Makes the copy equal to the table; a missing file (null) or table has no programmes. Returns
  // whether programmes differ. Returns early when `goesOn` returns false. Throws SQLite::Exception;
  // the content then stays, except if the copy itself failed.
  bool refresh(ServiceFile* file, const std::function<bool()>& goesOn);

  // Removes texts from the copy that belong to no content any more.
  void tidy();

  // Calls `found` for each programme of these channels in a window, without description, with the
  // position of the key; stops when that returns false.
  void window(const std::vector<std::string>& keys, int64_t from, int64_t to,
              const std::function<bool(size_t, const Programme&)>& found);
  // Returns the programmes of a channel, complete.
  std::optional<Programme> startingAt(const std::string& key, int64_t start);
  NowNext nowNext(const std::string& key, int64_t utc);

  // Returns the keys of the channels that have a programme of this genre in a window.
  std::vector<std::string> channelsWith(uint32_t genre, int64_t from, int64_t to);
  GuideSpan span();

  // Returns the first programmes that match, by their start; sets `more` if there are others.
  std::vector<SearchHit> search(const SearchQuery& query, bool* more);

 private:
  struct Entry;
  struct Index;
  class Builder;

  // Require turns_.
  Programme programmeOf(const Entry& entry, bool isWhole);
  void insertTexts(std::vector<ProgrammeTexts>* texts);

  void clear();

  const apps::Source& source_;
  Turns turns_;
  std::unique_ptr<Index> index_;         // guarded by turns_; only its thread changes it
  std::unique_ptr<ProgrammeCopy> copy_;  // guarded by turns_

  // Of refresh() and tidy(): ids that no text has, and those whose texts belong to no content.
  std::vector<uint32_t> freeIds_;
  uint32_t nextId_ = 1;
  std::vector<uint32_t> goneIds_;
};

}  // namespace web

#endif  // ATSC_WEB_GUIDE_PROGRAMME_TABLE_H_
