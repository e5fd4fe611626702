#include "guide/guide_routes.h"

#include <sqlite3.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/json.h"
#include "common/text.h"
#include "guide/json_text.h"
#include "guide/table_rows.h"

namespace web {
namespace {

constexpr size_t kMostGuideRows = 64;
constexpr size_t kMostAnswered = 10000;    // programmes
constexpr size_t kLongestGuide = 4 << 20;  // bytes
constexpr int64_t kMostHits = 500;
constexpr int64_t kMostTableRows = 200;
constexpr size_t kLongestSearch = 1000;  // bytes
constexpr int kAttempts = 4;

constexpr int64_t kNoEnd = std::numeric_limits<int64_t>::max();

// What a request says wrong; std::invalid_argument becomes an answer.
[[noreturn]] void refuse(const std::string& what) { throw std::invalid_argument(what); }

std::optional<int64_t> parseNumber(std::string_view text) {
  int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::string textParameter(const Request& request, const std::string& name) {
  const auto found = request.query.find(name);
  return found == request.query.end() ? "" : found->second;
}

std::optional<int64_t> optionalNumber(const Request& request, const std::string& name) {
  const std::string text = textParameter(request, name);
  if (text.empty()) return std::nullopt;
  const std::optional<int64_t> number = parseNumber(text);
  if (!number) refuse(name + " is no number");
  return number;
}

int64_t numberParameter(const Request& request, const std::string& name) {
  const std::optional<int64_t> number = optionalNumber(request, name);
  if (!number) refuse(name + " is missing");
  return *number;
}

std::optional<uint32_t> genreParameter(const Request& request) {
  const std::optional<int64_t> genre = optionalNumber(request, "genre");
  if (!genre) return std::nullopt;
  if (*genre < 0 || *genre > 65535) refuse("genre is no code");
  return static_cast<uint32_t>(*genre);
}

const apps::Source& sourceParameter(const Request& request) {
  const std::string name = textParameter(request, "src");
  for (const apps::Source& source : apps::kSources) {
    if (name == source.name) return source;
  }
  refuse("src is VSB or QAM");
}

const ChannelRow& rowParameter(const Request& request, const ChannelList& list) {
  const ChannelRow* const channel = list.withRow(numberParameter(request, "row"));
  if (channel == nullptr) refuse("no channel has this row");
  return *channel;
}

std::vector<int64_t> rowsParameter(const Request& request) {
  std::vector<int64_t> rows;
  for (const std::string& text : apps::split(textParameter(request, "rows"), ',')) {
    const std::optional<int64_t> row = parseNumber(text);
    if (!row) refuse("rows are numbers");
    rows.push_back(*row);
    if (rows.size() > kMostGuideRows) refuse("more than 64 rows");
  }
  std::sort(rows.begin(), rows.end());
  rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
  return rows;
}

void writeMembers(JsonText& json, const Programme& programme) {
  json.number("start", programme.start)
      .number("duration", programme.duration)
      .text("title", programme.title)
      .text("rating", programme.rating)
      .boolean("cc", programme.captioned)
      .boolean("blocked", programme.blocked)
      .key("genres")
      .open('[');
  if (!programme.genres.empty()) json.raw(programme.genres);
  json.close(']');
}

Response answerOf(JsonText& json) { return {200, json.take()}; }

Response answerChannels(GuideStore& store, const Request& request) {
  const apps::Source& source = sourceParameter(request);
  JsonText json;
  json.open('{')
      .number("version", static_cast<int64_t>(store.versions().channels))
      .text("src", source.name)
      .key("channels")
      .open('[');
  const std::shared_ptr<const ChannelList> list = store.channels(source);
  constexpr size_t kRestOfChannel = 240;
  size_t length = 0;
  for (const ChannelRow& channel : list->rows()) {
    length += channel.name.size() + channel.key.size() + channel.audio.size() +
              channel.video.size() + kRestOfChannel;
  }
  json.reserve(length);
  for (const ChannelRow& channel : list->rows()) writeChannel(json, source, channel);
  json.close(']').close('}');
  return answerOf(json);
}

Response answerGuide(GuideStore& store, const Request& request) {
  const apps::Source& source = sourceParameter(request);
  const int64_t from = numberParameter(request, "from");
  const int64_t to = numberParameter(request, "to");
  JsonText json;
  json.open('{').number("version", static_cast<int64_t>(store.versions().guide));
  const std::shared_ptr<const ChannelList> list = store.channels(source);
  std::vector<int64_t> rows;
  std::vector<std::string> keys;
  for (const int64_t row : rowsParameter(request)) {
    const ChannelRow* const channel = list->withRow(row);
    if (channel == nullptr) continue;
    rows.push_back(row);
    keys.push_back(channel->key);
  }
  json.key("rows").open('{');
  size_t open = 0;  // rows that were begun
  const auto beginRows = [&](size_t count) {
    for (; open < count; ++open) {
      if (open > 0) json.close(']');
      json.key(std::to_string(rows[open])).open('[');
    }
  };
  size_t written = 0;
  store.programmes(source).window(keys, from, to, [&](size_t at, const Programme& programme) {
    if (json.size() > kLongestGuide) written = kMostAnswered;
    if (++written > kMostAnswered) return false;
    beginRows(at + 1);
    json.open('{');
    writeMembers(json, programme);
    json.close('}');
    return true;
  });
  if (written > kMostAnswered) refuse("more programmes than an answer holds");
  beginRows(rows.size());
  if (open > 0) json.close(']');
  json.close('}').close('}');
  return answerOf(json);
}

Response answerMatching(GuideStore& store, const Request& request) {
  const apps::Source& source = sourceParameter(request);
  const std::optional<uint32_t> genre = genreParameter(request);
  if (!genre) refuse("genre is missing");
  const std::shared_ptr<const ChannelList> list = store.channels(source);
  std::vector<int64_t> rows;
  for (const std::string& key : store.programmes(source).channelsWith(
           *genre, numberParameter(request, "from"), numberParameter(request, "to"))) {
    if (const ChannelRow* const channel = list->withKey(key)) rows.push_back(channel->row);
  }
  std::sort(rows.begin(), rows.end());
  JsonText json;
  json.open('{').key("rows").open('[');
  for (const int64_t row : rows) json.number(row);
  json.close(']').close('}');
  return answerOf(json);
}

Response answerSpan(GuideStore& store, const Request& request) {
  const GuideSpan span = store.programmes(sourceParameter(request)).span();
  JsonText json;
  json.open('{')
      .number("first", span.first)
      .number("last", span.last)
      .number("programmes", static_cast<int64_t>(span.programmes))
      .key("genres")
      .open('[');
  for (const uint32_t genre : span.genres) json.number(genre);
  json.close(']').close('}');
  return answerOf(json);
}

Response answerProgramme(GuideStore& store, const Request& request) {
  const apps::Source& source = sourceParameter(request);
  const std::shared_ptr<const ChannelList> list = store.channels(source);
  const ChannelRow& channel = rowParameter(request, *list);
  const std::optional<Programme> programme =
      store.programmes(source).startingAt(channel.key, numberParameter(request, "start"));
  if (!programme) return errorResponse(404, "no-programme", "nothing starts there");
  JsonText json;
  json.open('{');
  writeMembers(json, *programme);
  json.text("description", programme->description)
      .key("channel")
      .open('{')
      .number("row", channel.row)
      .text("number", channel.number(source))
      .text("name", channel.name)
      .close('}')
      .close('}');
  return answerOf(json);
}

Response answerSearch(GuideStore& store, const Request& request) {
  const apps::Source& source = sourceParameter(request);
  const std::shared_ptr<const ChannelList> list = store.channels(source);
  SearchQuery query;
  query.words = textParameter(request, "q");
  if (query.words.size() > kLongestSearch) refuse("q is too long");
  if (query.words.find_first_not_of(' ') == std::string::npos) query.words.clear();
  query.genre = genreParameter(request);
  query.after = optionalNumber(request, "after").value_or(-1);
  query.limit = static_cast<size_t>(
      std::clamp<int64_t>(optionalNumber(request, "limit").value_or(100), 1, kMostHits));
  query.accepts = [&list](const std::string& key) {
    const ChannelRow* const channel = list->withKey(key);
    return channel != nullptr && !channel->isDeleted();
  };
  bool more = false;
  std::vector<SearchHit> hits;
  if (query.genre || !query.words.empty()) {
    hits = store.programmes(source).search(query, &more);
  }
  JsonText json;
  json.open('{').key("results").open('[');
  for (const SearchHit& hit : hits) {
    json.open('{');
    writeMembers(json, hit.programme);
    json.number("row", list->withKey(hit.key)->row).close('}');
  }
  json.close(']').boolean("more", more).close('}');
  return answerOf(json);
}

Response answerRows(GuideStore& store, const Request& request) {
  const std::string database = textParameter(request, "db");
  if (database != "channels" && database != "guide") refuse("db is channels or guide");
  const std::string& path = database == "guide" ? store.files().events : store.files().channels;
  const int64_t offset = optionalNumber(request, "offset").value_or(0);
  const int64_t count = optionalNumber(request, "count").value_or(50);
  for (int attempt = 1;; ++attempt) {
    try {
      return {200, tableRows(path, textParameter(request, "table"),
                             std::clamp<int64_t>(offset, 0, kNoEnd),
                             std::clamp<int64_t>(count, 0, kMostTableRows))};
    } catch (const SQLite::Exception& error) {
      // A busy machine may have stopped this thread while it read.
      const bool tookLong = error.getErrorCode() == SQLITE_INTERRUPT;
      if (!tookLong || attempt == kAttempts) return errorResponse(503, "database", error.what());
    }
  }
}

Response answerPlan(GuideStore&, const Request& request) {
  const apps::Source& source = sourceParameter(request);
  JsonText json;
  json.open('{').key("channels").open('[');
  for (int i = 0; source.plan[i] != -1; ++i) {
    json.open('{').number("rf", source.firstChannel + i).number("freq", source.plan[i]).close('}');
  }
  json.close(']').close('}');
  return answerOf(json);
}

}  // namespace

Json::Value programmeJson(const Programme& programme) {
  JsonText json;
  json.open('{');
  writeMembers(json, programme);
  json.text("description", programme.description).close('}');
  return apps::parseJson(json.take()).value_or(Json::Value());
}

void addGuideRoutes(Router& router, GuideStore& store) {
  using Answer = Response (*)(GuideStore&, const Request&);
  const std::pair<const char*, Answer> answers[] = {{"/api/channels", answerChannels},
                                                    {"/api/guide", answerGuide},
                                                    {"/api/guide/matching", answerMatching},
                                                    {"/api/guide/span", answerSpan},
                                                    {"/api/programme", answerProgramme},
                                                    {"/api/search", answerSearch},
                                                    {"/api/rows", answerRows},
                                                    {"/api/plan", answerPlan}};
  for (const auto& [path, answer] : answers) {
    router.get(path, [&store, answer = answer](const Request& request) {
      try {
        return answer(store, request);
      } catch (const std::invalid_argument& error) {
        return errorResponse(400, "bad-request", error.what());
      }
    });
  }
}

}  // namespace web
