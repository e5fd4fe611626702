#include "receiver/tables/rating_region.h"

#include <initializer_list>
#include <string_view>
#include <utility>

#include "aipc.h"
#include "receiver/stream/byte_reader.h"
#include "receiver/stream/transport.h"
#include "receiver/tables/psip_text.h"
#include "receiver/tables/table_ids.h"

namespace atschost {
namespace {

constexpr size_t kMaxRrtSize = 1024;

// Returns whether a multiple_string_structure ends within its field.
bool isWhole(ByteReader in) {
  for (unsigned strings = in.u8(); strings > 0; --strings) {
    in.u24();  // ISO_639_language_code
    for (unsigned segments = in.u8(); segments > 0; --segments) {
      in.u16();  // compression_type, mode
      in.part(in.u8());
    }
  }
  return !in.passedEnd();
}

// Reads a text with its length. Returns false if the text is broken.
bool readPart(ByteReader& in, std::string& text) {
  const ByteReader part = in.part(in.u8());
  if (in.passedEnd()) return false;
  if (part.left() == 0) return true;
  text = readText(part.data(), part.left(), AIPC_TEXT_SIZE);
  return isWhole(part);
}

struct StandardValue {
  std::string_view abbreviation;
  std::string_view text;
};

// Texts are Latin-1, the first 256 characters of Unicode.
RatingRegion::Dimension dimension(std::string_view name, bool graduated,
                                  std::initializer_list<StandardValue> values) {
  RatingRegion::Dimension dimension{toUtf16(name), graduated, {}};
  for (const StandardValue& value : values)
    dimension.values.push_back({toUtf16(value.abbreviation), toUtf16(value.text)});
  return dimension;
}

// Returns the dimension of a content that a programme has or has not.
RatingRegion::Dimension flag(std::string_view name, std::string_view value) {
  return dimension(name, false, {{"", ""}, {value, value}});
}

}  // namespace

const char* readRatingRegion(const uint8_t* section, size_t size, RatingRegion& region) {
  if (size < 3 || section[0] != kRrtId || size != read12(section + 1) + 3u) return "RRT is none";
  return readRatingRegion(parseSection(kPsipBasePid, section, size), region);
}

const char* readRatingRegion(const Section& section, RatingRegion& region) {
  if (section.size > kMaxRrtSize) return "RRT section is too long";
  if (section.fault) return section.fault;
  region.number = static_cast<uint8_t>(section.extension);
  region.version = section.version;
  if (region.number == 0) return "RRT has no region";
  if (section.lastNumber != 0) return "RRT has several sections";
  ByteReader in = section.body();
  if (in.u8() != 0) return "RRT of an unknown protocol version";

  constexpr const char* kBrokenText = "RRT has a broken text";
  constexpr const char* kPassesEnd = "RRT passes the end";
  const auto fault = [&] { return in.passedEnd() ? kPassesEnd : kBrokenText; };
  if (!readPart(in, region.name)) return fault();
  unsigned dimensions = in.u8();  // dimensions_defined
  if (in.passedEnd()) return kPassesEnd;
  if (dimensions == 0) return "RRT defines nothing";
  for (; dimensions > 0; --dimensions) {
    RatingRegion::Dimension& dimension = region.dimensions.emplace_back();
    if (!readPart(in, dimension.name)) return fault();
    const uint8_t field = in.u8();
    dimension.graduated = field & 0x10;  // graduated_scale
    for (unsigned values = field & 0x0F; values > 0; --values) {
      RatingRegion::Value& value = dimension.values.emplace_back();
      if (!readPart(in, value.abbreviation) || !readPart(in, value.text)) return fault();
    }
  }
  in.part(in.u16() & 0x03FF);  // descriptors
  return in.passedEnd() ? kPassesEnd : nullptr;
}

std::vector<RatingRegion> standardRatingRegions() {
  RatingRegion us;
  us.number = AIPC_REGION_US;
  us.name = toUtf16("U.S. (50 states + possessions)");
  us.dimensions = {
      dimension("Entire Audience", true,
                {{"", ""},
                 {"None", "None"},
                 {"TV-G", "TV-G"},
                 {"TV-PG", "TV-PG"},
                 {"TV-14", "TV-14"},
                 {"TV-MA", "TV-MA"}}),
      flag("Dialogue", "D"),
      flag("Language", "L"),
      flag("Sex", "S"),
      flag("Violence", "V"),
      dimension("Children", true, {{"", ""}, {"TV-Y", "TV-Y"}, {"TV-Y7", "TV-Y7"}}),
      flag("Fantasy violence", "FV"),
      dimension("MPAA", false,
                {{"", ""},
                 {"N/A", "MPAA Rating Not Applicable"},
                 {"G", "Suitable for All Ages"},
                 {"PG", "Parental Guidance Suggested"},
                 {"PG-13", "Parents Strongly Cautioned"},
                 {"R", "Restricted, under 17 must be accompanied by adult"},
                 {"NC-17", "No One 17 and Under Admitted"},
                 {"X", "No One 17 and Under Admitted"},
                 {"NR", "Not Rated by MPAA"}}),
  };
  RatingRegion canada;
  canada.number = AIPC_REGION_CANADA;
  canada.name = toUtf16("Canada");
  canada.dimensions = {
      dimension("Canadian English Language Rating", true,
                {{"E", "Exempt"},
                 {"C", "Children"},
                 {"C8+", "Children eight years and older"},
                 {"G", "General programming, suitable for all audiences"},
                 {"PG", "Parental Guidance"},
                 {"14+", "Viewers 14 years and older"},
                 {"18+", "Adult Programming"}}),
      dimension(
          "Codes fran\347ais du Canada", true,
          {{"E", "Exempt\351es"},
           {"G", "G\351n\351ral"},
           {"8 ans+", "8+ G\351n\351ral - D\351conseill\351 aux jeunes enfants"},
           {"13 ans+", "Cette \351mission peut ne pas convenir aux enfants de moins de 13 ans"},
           {"16 ans+", "Cette \351mission ne convient pas aux moins de 16 ans"},
           {"18 ans+", "Cette \351mission est r\351serv\351e aux adultes"}}),
  };
  return {std::move(us), std::move(canada)};
}

}  // namespace atschost
