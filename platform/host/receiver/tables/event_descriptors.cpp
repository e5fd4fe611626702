#include "receiver/tables/event_descriptors.h"

#include "aiec.h"
#include "receiver/tables/caption_services.h"
#include "receiver/tables/content_advisory.h"
#include "receiver/tables/psip_text.h"

namespace atschost {
namespace {

constexpr uint8_t kGenreTag = 0xAB;

}  // namespace

bool read_event_descriptors(ByteReader in, GuideEvent& event) {
  std::vector<std::string> ratings;
  bool sound = true;
  while (in.left() > 0) {
    const uint8_t tag = in.u8();
    ByteReader content = in.part(in.u8());
    if (in.passed_end()) break;
    switch (tag) {
      case kContentAdvisoryTag:
        sound = read_content_advisory(content.data(), content.left(), ratings, event.advisories) &&
                sound;
        break;
      case kCaptionServiceTag:
        sound =
            read_caption_services(content.data(), content.left(), event.caption_services) && sound;
        break;
      case kGenreTag:
        for (unsigned count = content.u8() & 0x1F; count > 0 && content.left() > 0; --count)
          if (event.genres.size() < AIEC_MAX_GENRES) event.genres.push_back(content.u8());
        break;
      default:
        break;
    }
  }
  event.captions = !event.caption_services.empty();
  event.caption_services.shrink_to_fit();
  event.advisories.shrink_to_fit();
  if (!ratings.empty()) event.rating = ratings.front();
  if (ratings.size() > 1) {
    for (const std::string& rating : ratings) {
      if (!event.other_ratings.empty()) event.other_ratings += to_utf16(", ");
      event.other_ratings += rating;
    }
  }
  return sound && !in.passed_end();
}

}  // namespace atschost
