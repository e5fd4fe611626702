#include "guide.h"

#include <algorithm>
#include <utility>

#include "mux.h"

namespace psipmux {
namespace {

constexpr uint8_t kRrtTableId = 0xCA;
constexpr uint8_t kEitTableId = 0xCB;
constexpr uint8_t kEttTableId = 0xCC;
constexpr uint8_t kAlertTableId = 0xD8;

constexpr uint16_t kTableTypeEit = 0x0100;
constexpr uint16_t kTableTypeEtt = 0x0200;
constexpr uint16_t kTableTypeRrt = 0x0300;  // plus the rating region

constexpr uint32_t kSegmentSeconds = 3 * 3600;

// Of all sections, in bytes. More than five times the capacity of a stream.
constexpr size_t kMaxGuideSize = 16u << 20;

struct Event {
  uint32_t start = 0;  // GPS seconds
  uint16_t id = 0;
  const Programme* programme = nullptr;

  uint32_t end() const { return start + programme->duration; }
};

/// Returns the events of a service that overlap the period from `begin` to `end` (GPS seconds).
std::vector<Event> eventsBetween(const Service& service, uint32_t begin, uint32_t end) {
  std::vector<Event> events;
  uint32_t period = 0;
  for (const Programme& programme : service.programmes) period += programme.duration;
  if (period == 0) return events;
  uint32_t start = service.guideOffset + kGpsUtcOffset;
  if (start < begin) start += (begin - start) / period * period;
  while (start < end) {
    for (const Programme& programme : service.programmes) {
      if (start < end && start + programme.duration > begin) {
        // Unique for 56 days, as no programme is shorter than 5 minutes.
        events.push_back({start, static_cast<uint16_t>(start / 300 & 0x3FFF), &programme});
      }
      start += programme.duration;
    }
  }
  return events;
}

/// Returns a genre_descriptor (A/65 6.9.13) without tag and length.
Bytes genreDescriptor(const std::vector<uint8_t>& genres) {
  Bytes body;
  put8(body, 0xE0u | static_cast<unsigned>(genres.size()));
  append(body, genres);
  return body;
}

/// Returns the entry of an event in the event loop of an EIT.
Bytes eitEvent(const Event& event, bool withRating) {
  constexpr uint32_t kEtmInThisStream = 1;
  const Programme& programme = *event.programme;
  Bytes out;
  put16(out, 0xC000u | event.id);
  put32(out, event.start);
  const uint32_t etmLocation = programme.description.empty() ? 0 : kEtmInThisStream;
  const uint32_t locationAndLength = 0xC00000u | etmLocation << 20 | programme.duration;
  put8(out, locationAndLength >> 16);
  put16(out, locationAndLength & 0xFFFF);
  putShortText(out, programme.title);
  Bytes descriptors;
  if (!programme.captions.empty()) {
    putDescriptor(descriptors, kCaptionServiceTag, captionServices(programme.captions));
  }
  if (withRating && !programme.ratings.empty()) {
    putDescriptor(descriptors, kContentAdvisoryTag, contentAdvisory(programme.ratings));
  }
  if (!programme.genres.empty())
    putDescriptor(descriptors, 0xAB, genreDescriptor(programme.genres));
  put16(out, 0xF000u | static_cast<unsigned>(descriptors.size()));
  append(out, descriptors);
  return out;
}

/// Returns the sections of one service in one EIT instance.
std::vector<Bytes> buildEit(const Service& service, uint8_t version,
                            const std::vector<Event>& events) {
  constexpr size_t kAround = 2;  // protocol_version, num_events_in_section
  constexpr size_t kMaxLoop = kMaxLongSectionSize - kSectionHeaderSize - kCrcSize - kAround;
  struct Part {
    unsigned events = 0;
    Bytes loop;
  };
  std::vector<Part> parts(1);
  for (const Event& event : events) {
    const Bytes entry = eitEvent(event, service.ratingInGuide);
    if (parts.back().loop.size() + entry.size() > kMaxLoop) parts.emplace_back();
    ++parts.back().events;
    append(parts.back().loop, entry);
  }
  std::vector<Bytes> sections;
  for (const Part& part : parts) {
    Bytes body;
    put8(body, 0);  // protocol_version
    put8(body, part.events);
    append(body, part.loop);
    sections.push_back(longSection(kEitTableId, service.sourceId, version, sections.size(),
                                   parts.size() - 1, body));
  }
  return sections;
}

Bytes buildEtt(size_t extension, uint8_t version, uint16_t sourceId, const Event& event) {
  constexpr unsigned kEtmOfEvent = 2;
  Bytes body;
  put8(body, 0);  // protocol_version
  put16(body, sourceId);
  put16(body, static_cast<unsigned>(event.id) << 2 | kEtmOfEvent);
  append(body, multipleString(event.programme->description));
  return longSection(kEttTableId, static_cast<uint16_t>(extension), version, 0, 0, body);
}

}  // namespace

std::vector<GuideTable> buildGuide(const Lineup& lineup, const Channel& channel,
                                   uint32_t systemTime) {
  const uint32_t begin =
      (systemTime - kGpsUtcOffset) / kSegmentSeconds * kSegmentSeconds + kGpsUtcOffset;
  const unsigned instances = (lineup.guideHours + 2) / 3;
  std::vector<std::vector<Event>> events;
  for (const Service& service : channel.services) {
    events.push_back(eventsBetween(service, begin, begin + instances * kSegmentSeconds));
  }
  std::vector<GuideTable> tables;
  size_t size = 0;
  const auto add = [&size](GuideTable& table, Bytes section) {
    size += section.size();
    if (size > kMaxGuideSize) throw MuxError("its guide takes more than 16 MiB");
    table.sections.push_back(std::move(section));
  };
  for (unsigned k = 0; k < instances; ++k) {
    const auto number = static_cast<uint16_t>(k);
    GuideTable eit{
        static_cast<uint16_t>(kTableTypeEit + number), static_cast<uint16_t>(kEitPid + number), {}};
    GuideTable ett{
        static_cast<uint16_t>(kTableTypeEtt + number), static_cast<uint16_t>(kEttPid + number), {}};
    const uint32_t from = begin + k * kSegmentSeconds;
    for (size_t s = 0; s < channel.services.size(); ++s) {
      const Service& service = channel.services[s];
      const auto first = std::partition_point(events[s].begin(), events[s].end(),
                                              [&](const Event& e) { return e.end() <= from; });
      const auto last = std::partition_point(
          first, events[s].end(), [&](const Event& e) { return e.start < from + kSegmentSeconds; });
      if (first == last) continue;
      for (Bytes& section : buildEit(service, channel.guideVersion, {first, last})) {
        add(eit, std::move(section));
      }
      for (auto event = first; event != last; ++event) {
        if (event->programme->description.empty()) continue;
        add(ett, buildEtt(ett.sections.size(), channel.guideVersion, service.sourceId, *event));
      }
    }
    for (GuideTable* table : {&eit, &ett}) {
      if (!table->sections.empty()) tables.push_back(std::move(*table));
    }
  }
  return tables;
}

OnAir findOnAir(const Service& service, uint32_t systemTime) {
  const std::vector<Event> events = eventsBetween(service, systemTime, systemTime + 1);
  if (events.empty()) return {};
  uint32_t period = 0;
  for (const Programme& programme : service.programmes) period += programme.duration;
  const Event& event = events.front();
  const uint32_t rounds = (event.start - service.guideOffset - kGpsUtcOffset) / period;
  const auto count = static_cast<uint32_t>(service.programmes.size());
  return {event.programme,
          rounds * count + static_cast<uint32_t>(event.programme - service.programmes.data())};
}

Bytes captionServices(const std::vector<CaptionService>& captions) {
  Bytes body;
  put8(body, 0xE0u | static_cast<unsigned>(captions.size()));
  for (const CaptionService& caption : captions) {
    putLanguage(body, caption.language);
    put8(body, (caption.digital ? 0xC0u : 0x7Eu) | caption.number);
    put16(body, 0x3FFFu | (caption.easyReader ? 0x8000u : 0) | (caption.wide ? 0x4000u : 0));
  }
  return body;
}

Bytes contentAdvisory(const std::vector<Rating>& ratings) {
  Bytes body;
  put8(body, 0xC0u | static_cast<unsigned>(ratings.size()));
  for (const Rating& rating : ratings) {
    put8(body, rating.region);
    put8(body, static_cast<unsigned>(rating.dimensions.size()));
    for (const Rating::Dimension& dimension : rating.dimensions) {
      put8(body, dimension.index);
      put8(body, 0xF0u | dimension.value);
    }
    putShortText(body, rating.text);
  }
  return body;
}

Bytes buildRrt(const RatingRegion& region) {
  Bytes body;
  put8(body, 0);  // protocol_version
  putShortText(body, region.name);
  put8(body, static_cast<unsigned>(region.dimensions.size()));
  for (const RatingRegion::Dimension& dimension : region.dimensions) {
    putShortText(body, dimension.name);
    put8(body, 0xE0u | (dimension.graduated ? 0x10u : 0) |
                   static_cast<unsigned>(dimension.values.size()));
    for (const RatingRegion::Value& value : dimension.values) {
      putShortText(body, value.abbreviation);
      putShortText(body, value.rating);
    }
  }
  put16(body, 0xFC00);  // descriptors_length
  return longSection(kRrtTableId, static_cast<uint16_t>(0xFF00u | region.region), region.version, 0,
                     0, body);
}

MgtEntry rrtMgtEntry(const RatingRegion& region, const Bytes& section) {
  return {static_cast<uint16_t>(kTableTypeRrt + region.region), kPsipPid, region.version,
          static_cast<uint32_t>(section.size())};
}

Bytes buildAlert(const Alert& alert) {
  Bytes body;
  put8(body, 0);  // protocol_version
  put16(body, alert.eventId);
  append(body, Bytes(alert.originator.begin(), alert.originator.end()));
  put8(body, static_cast<unsigned>(alert.eventCode.size()));
  append(body, Bytes(alert.eventCode.begin(), alert.eventCode.end()));
  putShortText(body, alert.activationText);
  put8(body, alert.timeRemaining);
  put32(body, 0);  // event_start_time
  put16(body, alert.duration);
  put16(body, 0xFFF0u | alert.priority);
  put16(body, 0);       // details_OOB_source_ID
  put16(body, 0xFC00);  // details_major_channel_number
  put16(body, 0xFC00);  // details_minor_channel_number
  put16(body, 0);       // audio_OOB_source_ID
  const Bytes text = alert.text.empty() ? Bytes() : multipleString(alert.text);
  put16(body, static_cast<unsigned>(text.size()));
  append(body, text);
  put8(body, static_cast<unsigned>(alert.locations.size()));
  for (const Alert::Location& location : alert.locations) {
    put8(body, location.state);
    put16(body, static_cast<unsigned>(location.subdivision) << 12 | 0x0C00u | location.county);
  }
  put8(body, 0);        // exception_count
  put16(body, 0xFC00);  // descriptors_length
  return longSection(kAlertTableId, 0, alert.sequence, 0, 0, body);
}

}  // namespace psipmux
