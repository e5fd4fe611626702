#include "guide/programme_table.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <numeric>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

#include "common/text.h"

namespace web {
namespace {

// Bounds for foreign files, far above what the service writes.
constexpr size_t kMostProgrammes = 400000;
constexpr size_t kLongestKey = 100;
constexpr size_t kLongestList = 400;    // of genres
constexpr size_t kLongestTitle = 2000;  // and rating
constexpr size_t kLongestDescription = 64 * 1024;

// How much of a piece is kept in memory until the lock of the service's file is released.
constexpr size_t kPieceBytes = 48 * 1024;
constexpr size_t kPieceRows = 200;

// Rows that are removed at once, while pages wait.
constexpr size_t kRemovedAtOnce = 200;

// A file that is written all the time is read anyway; soon it is read again.
constexpr int kMostRounds = 4;

constexpr size_t kMostGenres = 64;

constexpr uint32_t kNowhere = std::numeric_limits<uint32_t>::max();

enum EntryFlag : uint8_t { kCaptioned = 1, kBlocked = 2 };

const std::vector<const char*> kProgrammeColumns = {
    "ch_id_pk", "start_time", "duration", "name", "rating", "parent_stat", "cc", "genre", "desc"};
enum ProgrammeColumn { kKey, kStart, kDuration, kTitle, kRating, kParental, kCc, kGenre, kDesc };

// A number that differs for different programmes. It leaves out what is not in the copy: other
// parental settings change a whole guide, but no text.
class RowDigest {
 public:
  void add(std::string_view bytes) {
    add(bytes.size());
    for (; bytes.size() >= sizeof(uint64_t); bytes.remove_prefix(sizeof(uint64_t))) {
      uint64_t part = 0;
      memcpy(&part, bytes.data(), sizeof part);
      add(part);
    }
    uint64_t rest = 0;
    memcpy(&rest, bytes.data(), bytes.size());
    add(rest);
  }
  void add(uint64_t part) {
    sum_ = (sum_ ^ part) * 0x9E3779B97F4A7C15;  // odd, its bits are evenly spread
    sum_ ^= sum_ >> 32;
  }
  uint64_t value() const { return sum_; }

 private:
  uint64_t sum_ = 0;
};

std::string_view bytesOf(const SQLite::Column& column) {
  const char* const text = column.getText();
  return {text, static_cast<size_t>(column.getBytes())};
}

// Times of the guide have 32 bits.
uint32_t secondsOf(const SQLite::Column& column) {
  return static_cast<uint32_t>(
      std::clamp<int64_t>(column.getInt64(), 0, std::numeric_limits<uint32_t>::max()));
}

// Returns the codes of a genre list, as in the table but without what is no code.
std::vector<uint32_t> genresOf(std::string_view list) {
  std::vector<uint32_t> codes;
  uint32_t code = 0;
  bool isCode = false;
  for (const char c : list) {
    const bool isDigit = c >= '0' && c <= '9';
    if (isDigit) code = std::min<uint32_t>(code * 10 + static_cast<uint32_t>(c - '0'), 65535);
    if (!isDigit && isCode) codes.push_back(code);
    if (!isDigit) code = 0;
    isCode = isDigit;
    if (codes.size() == kMostGenres) return codes;
  }
  if (isCode) codes.push_back(code);
  return codes;
}

}  // namespace

struct ProgrammeTable::Entry {
  uint64_t digest;
  uint32_t id;  // in the copy
  uint32_t start;
  uint32_t duration;
  uint32_t channel;  // position in Index::keys
  uint32_t genres;   // position in Index::genres
  uint8_t flags;

  int64_t end() const { return int64_t{start} + duration; }
  bool overlaps(int64_t from, int64_t to) const {
    return start < to && (end() > from || start >= from);
  }
};

struct ProgrammeTable::Index {
  std::vector<Entry> entries;  // sorted by channel and start
  std::vector<std::string> keys;
  std::vector<uint32_t> firstOf;  // position of the first entry of each channel, and the end
  std::vector<std::string> genres;
  std::vector<uint32_t> byId;  // position of the entry, or kNowhere

  // Returns the positions of a channel's entries.
  std::pair<uint32_t, uint32_t> entriesOf(const std::string& key) const {
    const auto found = std::lower_bound(keys.begin(), keys.end(), key);
    if (found == keys.end() || *found != key) return {0, 0};
    const auto channel = static_cast<size_t>(found - keys.begin());
    return {firstOf[channel], firstOf[channel + 1]};
  }

  // Returns for each position in `genres` whether it has a genre.
  std::vector<bool> with(uint32_t genre) const {
    std::vector<bool> has;
    for (const std::string& list : genres) {
      const std::vector<uint32_t> codes = genresOf(list);
      has.push_back(std::find(codes.begin(), codes.end(), genre) != codes.end());
    }
    return has;
  }
};

// Builds an index from the rows of the table; finds out which of them the copy has already.
class ProgrammeTable::Builder {
 public:
  explicit Builder(ProgrammeTable& table) : table_(table), old_(*table.index_) {
    byDigest_.resize(old_.entries.size());
    std::iota(byDigest_.begin(), byDigest_.end(), 0);
    std::sort(byDigest_.begin(), byDigest_.end(), [this](uint32_t a, uint32_t b) {
      return old_.entries[a].digest < old_.entries[b].digest;
    });
  }

  // Begins again with the first row. What was added to the copy can be used again.
  void begin() {
    std::sort(added_.begin(), added_.end());
    known_ = added_.size();
    entries_.clear();
    entries_.reserve(old_.entries.size());
    keys_ = {};
    genres_ = {};
  }

  // Returns false when the piece is large enough.
  bool add(SQLite::Statement& row) {
    const std::string_view key = bytesOf(row.getColumn(kKey));
    if (entries_.size() == kMostProgrammes || key.size() > kLongestKey) return true;
    Entry entry{};
    RowDigest digest;
    digest.add(key);
    digest.add(entry.start = secondsOf(row.getColumn(kStart)));
    digest.add(entry.duration = secondsOf(row.getColumn(kDuration)));
    for (const int column : {kTitle, kRating, kDesc}) digest.add(bytesOf(row.getColumn(column)));
    entry.flags = static_cast<uint8_t>((row.getColumn(kCc).getInt64() != 0 ? kCaptioned : 0) |
                                       (row.getColumn(kParental).getInt64() == 1 ? kBlocked : 0));
    const std::string_view genres = bytesOf(row.getColumn(kGenre)).substr(0, kLongestList);
    entry.digest = digest.value();
    entry.channel = keys_.of(key);
    entry.genres = genres_.of(genres);
    entry.id = idOf(entry.digest);
    if (entry.id == 0) entry.id = addTexts(entry.digest, row);
    entries_.push_back(entry);
    return texts_.size() < kPieceRows && bytes_ < kPieceBytes;
  }

  // What the copy does not have yet.
  std::vector<ProgrammeTexts>* texts() {
    bytes_ = 0;
    return &texts_;
  }

  using Added = std::vector<std::pair<uint64_t, uint32_t>>;  // digest and id
  const Added& added() const { return added_; }

  // Returns the index of all rows.
  std::unique_ptr<Index> finish() {
    auto index = std::make_unique<Index>();
    index->keys = keys_.take();
    for (std::string& key : index->keys) key = apps::validUtf8(key);
    const std::vector<uint32_t> places = sortKeys(&index->keys);
    for (const std::string& list : genres_.take()) {
      std::string codes;
      for (const uint32_t code : genresOf(list)) {
        codes += (codes.empty() ? "" : ",") + std::to_string(code);
      }
      index->genres.push_back(std::move(codes));
    }
    for (Entry& entry : entries_) entry.channel = places[entry.channel];
    const auto order = [](const Entry& e) { return std::tie(e.channel, e.start, e.digest); };
    std::sort(entries_.begin(), entries_.end(),
              [&](const Entry& a, const Entry& b) { return order(a) < order(b); });
    // Equal rows are one programme.
    entries_.erase(std::unique(entries_.begin(), entries_.end(),
                               [](const Entry& a, const Entry& b) { return a.digest == b.digest; }),
                   entries_.end());
    index->firstOf.assign(index->keys.size() + 1, 0);
    index->byId.assign(table_.nextId_, kNowhere);
    for (size_t i = 0; i < entries_.size(); ++i) {
      ++index->firstOf[entries_[i].channel + 1];
      index->byId[entries_[i].id] = static_cast<uint32_t>(i);
    }
    std::partial_sum(index->firstOf.begin(), index->firstOf.end(), index->firstOf.begin());
    index->entries = std::move(entries_);
    return index;
  }

 private:
  // Numbers texts in the order in which they appear.
  class Numbered {
   public:
    uint32_t of(std::string_view text) {
      if (!texts_.empty() && texts_[last_] == text) return last_;
      const auto [at, isNew] =
          numbers_.emplace(std::string(text), static_cast<uint32_t>(texts_.size()));
      if (isNew) texts_.emplace_back(text);
      return last_ = at->second;
    }
    std::vector<std::string> take() { return std::move(texts_); }

   private:
    std::vector<std::string> texts_;
    std::unordered_map<std::string, uint32_t> numbers_;
    uint32_t last_ = 0;
  };

  // Sorts the keys; returns where each of them has come to.
  static std::vector<uint32_t> sortKeys(std::vector<std::string>* keys) {
    std::vector<uint32_t> order(keys->size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(),
              [keys](uint32_t a, uint32_t b) { return (*keys)[a] < (*keys)[b]; });
    std::vector<uint32_t> places(order.size());
    std::vector<std::string> sorted;
    sorted.reserve(order.size());
    for (const uint32_t from : order) {
      places[from] = static_cast<uint32_t>(sorted.size());
      sorted.push_back(std::move((*keys)[from]));
    }
    *keys = std::move(sorted);
    return places;
  }

  // Returns the id of a row in the copy, 0 if it is not there.
  uint32_t idOf(uint64_t digest) const {
    const auto found = std::lower_bound(
        byDigest_.begin(), byDigest_.end(), digest,
        [this](uint32_t at, uint64_t wanted) { return old_.entries[at].digest < wanted; });
    if (found != byDigest_.end() && old_.entries[*found].digest == digest) {
      return old_.entries[*found].id;
    }
    const auto end = added_.begin() + static_cast<ptrdiff_t>(known_);
    const auto added = std::lower_bound(added_.begin(), end, std::make_pair(digest, uint32_t{0}));
    return added != end && added->first == digest ? added->second : 0;
  }

  uint32_t addTexts(uint64_t digest, SQLite::Statement& row) {
    uint32_t id = table_.nextId_;
    if (table_.freeIds_.empty()) {
      ++table_.nextId_;
    } else {
      id = table_.freeIds_.back();
      table_.freeIds_.pop_back();
    }
    added_.emplace_back(digest, id);
    ProgrammeTexts texts = {
        id, apps::validUtf8(bytesOf(row.getColumn(kTitle)).substr(0, kLongestTitle)),
        apps::validUtf8(bytesOf(row.getColumn(kRating)).substr(0, kLongestTitle)),
        apps::validUtf8(bytesOf(row.getColumn(kDesc)).substr(0, kLongestDescription))};
    if (texts.title == "EMPTY") texts.title.clear();
    if (texts.rating == "No rating" || texts.rating == "Not rated") texts.rating.clear();
    bytes_ += texts.title.size() + texts.rating.size() + texts.description.size();
    texts_.push_back(std::move(texts));
    return id;
  }

  ProgrammeTable& table_;
  const Index& old_;
  std::vector<uint32_t> byDigest_;  // positions of the old entries
  std::vector<Entry> entries_;
  Numbered keys_, genres_;
  std::vector<ProgrammeTexts> texts_;
  size_t bytes_ = 0;
  Added added_;
  size_t known_ = 0;  // those of the rounds before, sorted
};

ProgrammeTable::ProgrammeTable(const apps::Source& source)
    : source_(source), index_(std::make_unique<Index>()) {}

ProgrammeTable::~ProgrammeTable() = default;

bool ProgrammeTable::refresh(ServiceFile* file, const std::function<bool()>& goesOn) {
  tidy();
  Builder builder(*this);
  if (file != nullptr) {
    const std::vector<std::string> tables = file->tables();
    const bool exists = std::find(tables.begin(), tables.end(), source_.eventTable) != tables.end();
    try {
      for (int round = 1; exists; ++round) {
        builder.begin();
        const bool isComplete = file->readInPieces(
            source_.eventTable, kProgrammeColumns,
            [&](SQLite::Statement& row) { return builder.add(row); },
            [&] {
              insertTexts(builder.texts());
              return goesOn();
            },
            round >= kMostRounds);
        if (isComplete) break;
        if (!goesOn()) return false;
      }
    } catch (...) {
      if (nextId_ > 1) {
        for (const auto& [digest, id] : builder.added()) goneIds_.push_back(id);
      }
      throw;
    }
  }
  std::unique_ptr<Index> index = builder.finish();
  for (const auto& [digest, id] : builder.added()) {
    if (index->byId[id] == kNowhere) goneIds_.push_back(id);
  }
  bool differs = goneIds_.size() < builder.added().size();
  for (const Entry& entry : index_->entries) {
    const uint32_t at = index->byId[entry.id];
    if (at == kNowhere) goneIds_.push_back(entry.id);
    differs = differs || at == kNowhere || index->entries[at].flags != entry.flags ||
              index->genres[index->entries[at].genres] != index_->genres[entry.genres];
  }
  if (differs) {
    const WriterTurn turn(turns_);
    std::swap(index_, index);
  }
  return differs;
}

void ProgrammeTable::insertTexts(std::vector<ProgrammeTexts>* texts) {
  if (texts->empty()) return;
  try {
    const WriterTurn turn(turns_);
    if (!copy_) copy_ = std::make_unique<ProgrammeCopy>();
    copy_->insert(*texts);
  } catch (...) {
    clear();
    throw;
  }
  texts->clear();
}

void ProgrammeTable::tidy() {
  if (goneIds_.empty()) return;
  if (index_->entries.empty()) return clear();
  for (size_t i = 0; i < goneIds_.size(); i += kRemovedAtOnce) {
    try {
      const WriterTurn turn(turns_);
      copy_->remove(&goneIds_[i], std::min(kRemovedAtOnce, goneIds_.size() - i));
    } catch (...) {
      clear();
      throw;
    }
  }
  freeIds_.insert(freeIds_.end(), goneIds_.begin(), goneIds_.end());
  goneIds_ = {};
}

// The copy without a journal is of no use after a failure.
void ProgrammeTable::clear() {
  const WriterTurn turn(turns_);
  copy_.reset();
  index_ = std::make_unique<Index>();
  freeIds_ = {};
  goneIds_ = {};
  nextId_ = 1;
}

Programme ProgrammeTable::programmeOf(const Entry& entry, bool isWhole) {
  ProgrammeTexts texts = isWhole ? copy_->textsOf(entry.id) : copy_->titleOf(entry.id);
  return {entry.start,
          entry.duration,
          std::move(texts.title),
          std::move(texts.rating),
          std::move(texts.description),
          index_->genres[entry.genres],
          (entry.flags & kCaptioned) != 0,
          (entry.flags & kBlocked) != 0};
}

void ProgrammeTable::window(const std::vector<std::string>& keys, int64_t from, int64_t to,
                            const std::function<bool(size_t, const Programme&)>& found) {
  const std::lock_guard<Turns> turn(turns_);
  for (size_t i = 0; i < keys.size(); ++i) {
    const auto [begin, end] = index_->entriesOf(keys[i]);
    for (uint32_t at = begin; at < end && index_->entries[at].start < to; ++at) {
      const Entry& entry = index_->entries[at];
      if (entry.overlaps(from, to) && !found(i, programmeOf(entry, false))) return;
    }
  }
}

std::optional<Programme> ProgrammeTable::startingAt(const std::string& key, int64_t start) {
  const std::lock_guard<Turns> turn(turns_);
  const auto [begin, end] = index_->entriesOf(key);
  for (uint32_t at = begin; at < end; ++at) {
    if (index_->entries[at].start == start) return programmeOf(index_->entries[at], true);
  }
  return std::nullopt;
}

NowNext ProgrammeTable::nowNext(const std::string& key, int64_t utc) {
  const std::lock_guard<Turns> turn(turns_);
  const Entry* now = nullptr;
  const Entry* next = nullptr;
  const auto [begin, end] = index_->entriesOf(key);
  for (uint32_t at = begin; at < end && next == nullptr; ++at) {
    const Entry& entry = index_->entries[at];
    if (entry.start > utc) {
      next = &entry;
    } else if (entry.end() > utc) {
      now = &entry;
    }
  }
  NowNext result;
  if (now != nullptr) result.now = programmeOf(*now, true);
  if (next != nullptr) result.next = programmeOf(*next, true);
  return result;
}

std::vector<std::string> ProgrammeTable::channelsWith(uint32_t genre, int64_t from, int64_t to) {
  const std::lock_guard<Turns> turn(turns_);
  const std::vector<bool> has = index_->with(genre);
  std::vector<std::string> keys;
  uint32_t last = kNowhere;
  for (const Entry& entry : index_->entries) {
    if (entry.channel == last || !has[entry.genres] || !entry.overlaps(from, to)) continue;
    last = entry.channel;
    keys.push_back(index_->keys[last]);
  }
  return keys;
}

GuideSpan ProgrammeTable::span() {
  const std::lock_guard<Turns> turn(turns_);
  GuideSpan span;
  span.programmes = index_->entries.size();
  if (span.programmes == 0) return span;
  span.first = std::numeric_limits<int64_t>::max();
  std::set<uint32_t> lists, codes;
  for (const Entry& entry : index_->entries) {
    span.first = std::min<int64_t>(span.first, entry.start);
    span.last = std::max(span.last, entry.end());
    lists.insert(entry.genres);
  }
  for (const uint32_t list : lists) {
    for (const uint32_t code : genresOf(index_->genres[list])) codes.insert(code);
  }
  span.genres.assign(codes.begin(), codes.end());
  return span;
}

std::vector<SearchHit> ProgrammeTable::search(const SearchQuery& query, bool* more) {
  const std::lock_guard<Turns> turn(turns_);
  *more = false;
  const std::vector<Entry>& entries = index_->entries;
  if (entries.empty()) return {};
  const std::vector<bool> has =
      query.genre ? index_->with(*query.genre) : std::vector<bool>(index_->genres.size(), true);
  // 1: accepted, 0: not, -1: not asked yet.
  std::vector<int8_t> accepted(index_->keys.size(), -1);
  std::vector<uint32_t> matches;
  const auto take = [&](uint32_t at) {
    const Entry& entry = entries[at];
    if (!has[entry.genres] || entry.end() <= query.after) return;
    int8_t& isAccepted = accepted[entry.channel];
    if (isAccepted < 0) isAccepted = query.accepts(index_->keys[entry.channel]) ? 1 : 0;
    if (isAccepted == 1) matches.push_back(at);
  };
  if (query.words.empty()) {
    for (uint32_t at = 0; at < entries.size(); ++at) take(at);
  } else {
    copy_->search(query.words, [&](uint32_t id) {
      if (id < index_->byId.size() && index_->byId[id] != kNowhere) take(index_->byId[id]);
    });
  }
  *more = matches.size() > query.limit;
  const size_t count = std::min(matches.size(), query.limit);
  std::partial_sort(matches.begin(), matches.begin() + static_cast<ptrdiff_t>(count), matches.end(),
                    [&](uint32_t a, uint32_t b) {
                      return std::tie(entries[a].start, a) < std::tie(entries[b].start, b);
                    });
  std::vector<SearchHit> hits;
  for (size_t i = 0; i < count; ++i) {
    const Entry& entry = entries[matches[i]];
    hits.push_back({index_->keys[entry.channel], programmeOf(entry, false)});
  }
  return hits;
}

}  // namespace web
