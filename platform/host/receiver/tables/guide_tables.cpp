#include "receiver/tables/guide_tables.h"

namespace atschost {
namespace {

constexpr size_t kTextOverhead = 16;  // version, checksum

size_t sizeOf(const GuideEvent& event) {
  size_t size = sizeof(event) + event.title.size() + event.rating.size() +
                event.otherRatings.size() + event.genres.size() +
                event.captionServices.size() * sizeof(CaptionService);
  for (const Advisory& advisory : event.advisories)
    size += sizeof(advisory) + 2 * advisory.values.size();
  return size;
}

}  // namespace

size_t sizeOf(const GuideTables::Eit& events) {
  size_t size = kNodeSize;
  for (const GuideEvent& event : events) size += sizeOf(event);
  return size;
}

size_t sizeOfText(const std::string& text) {
  return kNodeSize + kTextOverhead + sizeof(text) + text.size();
}

bool GuideEvent::operator==(const GuideEvent& other) const {
  return eventId == other.eventId && start == other.start && duration == other.duration &&
         title == other.title && rating == other.rating && otherRatings == other.otherRatings &&
         advisories == other.advisories && genres == other.genres && captions == other.captions &&
         captionServices == other.captionServices;
}

}  // namespace atschost
