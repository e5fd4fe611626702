// Lineups and arguments that psipmux refuses.
#include <algorithm>

#include "lineup.h"
#include "psipmux_fixture.h"
#include "text.h"

namespace {

TEST(PsipmuxText, MalformedUtf8IsRefused) {
  EXPECT_EQ(u"a\u00E9\u20AC\U0001F4FA", psipmux::utf8ToUtf16("aé€📺"));
  for (const char* bad : {"\x80", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
    EXPECT_FALSE(psipmux::utf8ToUtf16(bad));
  }
}

std::string errorOf(const std::string& json) {
  try {
    psipmux::parseLineup(json, "bad.json");
  } catch (const psipmux::LineupError& error) {
    return error.what();
  }
  return "no error";
}

constexpr char kGood[] = R"({"medium": "cable", "channels": [
 {"frequency": 57000000, "tsid": 1, "services": [
  {"program": 1, "pmt_pid": 32, "major": 2, "minor": 1, "name": "One", "source_id": 4095,
   "streams": [{"type": "h264", "pid": 33}, {"type": "ac3", "pid": 36, "language": "eng"}]},
  {"program": 2, "pmt_pid": 48, "one_part": 70, "name": "Two", "source_id": 4096, "streams": []}]},
 {"frequency": 63000000, "tsid": 2, "services": [
  {"program": 1, "pmt_pid": 32, "major": 2, "minor": 5, "name": "Three", "source_id": 4095,
   "streams": []}]}]})";

TEST(PsipmuxErrors, InvalidLineupsNameTheKeyAndTheReason) {
  ASSERT_EQ("no error", errorOf(kGood));
  // Replacement in the valid lineup, with ' for ", and the error.
  const struct {
    std::string from, to, error;
  } kCases[] = {
      {"'cable'", "'sea'", "medium: must be one of air, cable"},
      {"'medium': 'cable', ", "", "medium: is missing"},
      {"'channels'", "'chanels': 1, 'channels'", "chanels: unknown key"},
      {"'tsid': 2", "'tsid': 2.5", "channels[1].tsid: must be an integer"},
      {"'tsid': 2", "'tsid': 65536", "channels[1].tsid: must be 0 to 65535"},
      {"'tsid': 2", "'tsid': 2, 'psip': 1", "channels[1].psip: must be true or false"},
      {"[]}]},", "{}}]},", "channels[0].services[1].streams: must be an array"},
      {"{'type': 'h264', 'pid': 33}", "3", "channels[0].services[0].streams[0]: must be an object"},
      {"'minor': 5", "'minor': -1", "channels[1].services[0].minor: must be 0 to 999"},
      {"63000000", "57000000", "channels[1].frequency: already used by channels[0].frequency"},
      {"'minor': 5", "'minor': 1",
       "channels[1].services[0].minor: already used by channels[0].services[0].minor"},
      {"'source_id': 4096", "'source_id': 4095",
       "channels[0].services[1].source_id: already used by channels[0].services[0].source_id"},
      {"'Three', 'source_id': 4095", "'Three', 'source_id': 4096",
       "channels[1].services[0].source_id: already used by channels[0].services[1].source_id"},
      {"'pmt_pid': 48", "'pmt_pid': 36",
       "channels[0].services[1].pmt_pid: already used by channels[0].services[0].streams[1].pid"},
      {"Three", "Eight888", "channels[1].services[0].name: must be at most 7 UTF-16 units"},
      {"Three", "📺", "channels[1].services[0].name: must not contain characters above U+FFFF"},
      {"Three", "\xC3(", "channels[1].services[0].name: is not valid UTF-8"},
      {"Three", "\\u0000", "channels[1].services[0].name: must not contain control characters"},
      {"'Two'", "'Two', 'extended_name': '" + std::string(248, 'x') + "'",
       "channels[0].services[1].extended_name: must be 1 to 247 UTF-16 units"},
      {"eng", "ENG",
       "channels[0].services[0].streams[1].language: must be three lower-case letters"},
      {"'cable'", "'air'", "channels[0].services[1].one_part: only for cable"},
      {"'one_part': 70", "'one_part': 70, 'major': 3",
       "channels[0].services[1].major: not with one_part"},
      {"'tsid': 2", "'tsid': 2, 'psip': false",
       "channels[1].services[0].name: not in a channel without psip"},
      {"33", "33, 'mainid': 0",
       "channels[0].services[0].streams[0].mainid: only for streams of type ac3"},
      {"36", "36, 'bsmod': 2", "channels[0].services[0].streams[1].asvcflags: is missing"},
      {"'pmt_pid': 48", "'pmt_pid': 7424",
       "channels[0].services[1].pmt_pid: must not be one of the guide's, 7424 to 7551"},
      {"'cable'", "'cable', 'guide_hours': 385", "guide_hours: must be 1 to 384"},
      {"'Three'", "'Three', 'programmes': [{'minutes': 4, 'title': ''}]",
       "channels[1].services[0].programmes[0].minutes: must be 5 to 1440"},
      {"'Three'",
       "'Three', 'programmes': [{'minutes': 5, 'title': '" + std::string(248, 'x') + "'}]",
       "channels[1].services[0].programmes[0].title: takes 256 bytes, the table has room for 255"},
      {"'Three'", "'Three', 'programmes': [{'minutes': 5, 'title': {'en': 'x'}}]",
       "channels[1].services[0].programmes[0].title.en: must be three lower-case letters"},
      {"'Three'", "'Three', 'programmes': [{'minutes': 5, 'title': '', 'genres': ['noise']}]",
       "channels[1].services[0].programmes[0].genres[0]: must be a genre of A/65 in lower case"},
      {"'Three'", "'Three', 'programmes': [{'minutes': 5, 'title': '', 'rating': 'TV-Y7-V'}]",
       "channels[1].services[0].programmes[0].rating: must be a TV rating such as TV-Y7-FV or "
       "TV-14-D-L-S-V"},
      {"'tsid': 2", "'tsid': 2, 'alerts': [{'sequence': 1, 'originator': 'EASY'}]",
       "channels[1].alerts[0].originator: must be 3 ASCII characters"},
      {"36", "36, 'second_language': 'spa'",
       "channels[0].services[0].streams[1].second_language: only with dual_mono and language"},
      {"'Two'", "'Two', 'rating_in': 'pmt'",
       "channels[0].services[1].rating_in: only with programmes"},
      {"'Three'", "'Three', 'rating_in': 'eit', 'programmes': [{'minutes': 5, 'title': ''}]",
       "channels[1].services[0].rating_in: must be one of guide, pmt, both"},
      {"'Two'", "'Two', 'captions': ['eng']",
       "channels[0].services[1].captions: only with streams, the first of which they belong to"},
      {"36", "36, 'bsmod': 2, 'mainid': 1",
       "channels[0].services[0].streams[1].mainid: only with a bsmod of 0 or 1"},
  };
  const auto quoted = [](std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
  };
  for (const auto& each : kCases) {
    EXPECT_EQ("bad.json: " + each.error,
              errorOf(replaced(kGood, quoted(each.from), quoted(each.to))));
  }
  EXPECT_EQ("bad.json: channels[0].services: must have 1 to 250 elements",
            errorOf(largeLineup(251)));
  const std::string good = kGood;
  for (const std::string& bad :
       {std::string(), good.substr(0, good.size() / 2), good + "x", "// comment\n" + good,
        replaced(good, "\"tsid\": 2", "\"tsid\": 2, \"tsid\": 3"), std::string(100'000, '[')}) {
    const std::string error = errorOf(bad);
    EXPECT_EQ(0u, error.find("bad.json: ")) << error;
    EXPECT_EQ(std::string::npos, error.find('\n')) << error;
  }
}

TEST_F(PsipmuxTest, FailureIsOneLineAndLeavesTheFolderAsItWas) {
  const std::string dir = folder_.string();
  const auto path = [&](const char* name) { return dir + "/" + name; };
  fs::create_directories(folder_ / "air/qam");
  writeFile(path("air/qam/57000000.ts"), "old");
  writeFile(path("air/qam/notes.txt"), "mine");
  writeFile(path("good.json"), kGood);
  writeFile(path("bad.json"), replaced(kGood, "\"tsid\": 1", "\"tsid\": -1"));
  writeFile(path("large.json"), largeLineup(200));
  writeFile(path("file"), "");
  fs::create_directories(folder_ / "blocked/qam/63000000.ts");
  const std::set<std::string> before = files();
  const std::string air = path("air");
  const std::string good = path("good.json");
  const struct {
    int status;
    std::vector<std::string> arguments;
    std::string error;
  } cases[] = {
      {1,
       {good, path("bad.json"), "--out", air},
       path("bad.json") + ": channels[0].tsid: must be 0 to 65535\n"},
      {1,
       {good, good, "--out", air},
       good + ": channels[0].frequency: already used by " + good + ": channels[0].frequency\n"},
      {1,
       {good, path("large.json"), "--out", air},
       path("large.json") +
           ": channels[0]: its tables take 2208 packets a second, the stream has 1000\n"},
      {1, {good, "--out", path("file")}, path("file/qam") + ": cannot create: Not a directory\n"},
      {2,
       {good, "--out", air, "--start", "2026-02-29T00:00:00Z"},
       "--start: must be a UTC time of 1980-01-06 to 2116 such as "
       "2026-04-22T19:39:46Z\n"},
      {2, {good}, "--out is required; see psipmux --help\n"},
  };
  for (const auto& [status, arguments, error] : cases) {
    const Outcome outcome = runPsipmux(arguments);
    EXPECT_EQ(status, outcome.status) << error;
    EXPECT_EQ("psipmux: " + error, outcome.out + outcome.err);
    EXPECT_EQ("old", readFile(path("air/qam/57000000.ts")));
  }
  EXPECT_EQ(before, files());
  // A write that fails half-way through the lineup.
  EXPECT_EQ(1, runPsipmux({good, "--out", path("blocked")}).status);
  for (const std::string& file : files()) EXPECT_EQ(std::string::npos, file.find("/.")) << file;
  // Success replaces only the written files.
  ASSERT_EQ(0, runPsipmux({good, "--out", air}).status);
  EXPECT_EQ(752'000u, fs::file_size(path("air/qam/57000000.ts")));
  EXPECT_EQ(4u, fs::file_size(path("air/qam/notes.txt")));
}

}  // namespace
