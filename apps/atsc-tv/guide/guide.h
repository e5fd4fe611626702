// The programme guide that the service keeps.
#ifndef ATSC_TV_GUIDE_GUIDE_H_
#define ATSC_TV_GUIDE_GUIDE_H_

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "channels/source.h"

namespace tv {

struct Programme {
  int64_t start;  // Unix seconds
  int64_t end;
  std::string title;  // texts are printable lines
  std::string rating;
  bool captioned;
  bool blocked;  // under the present parental settings
  std::string description;
  Json::Value row;  // as in the event table

  bool isRated() const;
};

struct GuideChannel {
  std::string number;
  std::string name;
  std::vector<Programme> programmes;  // by start time
};

// A span of time, Unix seconds; the end does not belong to it.
struct Span {
  int64_t start;
  int64_t end;
};

struct Guide {
  bool known = false;                  // whether there is an event table
  bool scanned = false;                // whether there is a channel table
  bool received = false;               // whether there are programmes of any channel
  Span covered = {0, 0};               // of all programmes of `channels`; empty: there are none
  std::vector<GuideChannel> channels;  // in channel order, also those without programmes
};

// The guide of a source: the programmes that touch `span`, of the channel with this number or, when
// it is empty, of all. Throws when a file cannot be read.
Guide readGuide(const std::string& channelDatabase, const std::string& eventDatabase,
                const Source& source, Span span, const std::string& number);

// The first `count` programmes of the channel with this key that end after a time.
std::vector<Programme> readProgrammes(const std::string& eventDatabase, const Source& source,
                                      const std::string& key, int64_t after, int count);

}  // namespace tv

#endif  // ATSC_TV_GUIDE_GUIDE_H_
