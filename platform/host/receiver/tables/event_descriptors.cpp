#include "receiver/tables/event_descriptors.h"

#include "aiec.h"
#include "receiver/tables/caption_services.h"
#include "receiver/tables/content_advisory.h"
#include "receiver/tables/psip_text.h"

namespace atschost {
namespace {

constexpr uint8_t kGenreTag = 0xAB;

}  // namespace

bool readEventDescriptors(ByteReader in, GuideEvent& event) {
  std::vector<std::string> ratings;
  bool sound = true;
  while (in.left() > 0) {
    const uint8_t tag = in.u8();
    ByteReader content = in.part(in.u8());
    if (in.passedEnd()) break;
    switch (tag) {
      case kContentAdvisoryTag:
        sound =
            readContentAdvisory(content.data(), content.left(), ratings, event.advisories) && sound;
        break;
      case kCaptionServiceTag:
        sound = readCaptionServices(content.data(), content.left(), event.captionServices) && sound;
        break;
      case kGenreTag:
        for (unsigned count = content.u8() & 0x1F; count > 0 && content.left() > 0; --count)
          if (event.genres.size() < AIEC_MAX_GENRES) event.genres.push_back(content.u8());
        break;
      default:
        break;
    }
  }
  event.captions = !event.captionServices.empty();
  event.captionServices.shrink_to_fit();
  event.advisories.shrink_to_fit();
  if (!ratings.empty()) event.rating = ratings.front();
  if (ratings.size() > 1) {
    for (const std::string& rating : ratings) {
      if (!event.otherRatings.empty()) event.otherRatings += toUtf16(", ");
      event.otherRatings += rating;
    }
  }
  return sound && !in.passedEnd();
}

}  // namespace atschost
