// The programme guide in the service's database.
#ifndef ATSC_TV_GUIDE_GUIDE_H_
#define ATSC_TV_GUIDE_GUIDE_H_

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/source.h"

namespace apps::tv {

struct Programme {
  int64_t start;  // Unix seconds
  int64_t end;
  std::string title;  // texts are printable lines
  std::string rating;
  bool captioned;
  bool blocked;  // by the current parental settings
  std::string description;
  Json::Value row;  // the row of the event table

  bool isRated() const;
};

struct GuideChannel {
  std::string number;
  std::string name;
  std::vector<Programme> programmes;  // sorted by start time
};

// A span of time in Unix seconds, without its end.
struct Span {
  int64_t start;
  int64_t end;
};

struct Guide {
  bool known = false;                  // the event table exists
  bool scanned = false;                // the channel table exists
  bool received = false;               // the event table has programmes
  Span covered = {0, 0};               // of all programmes of `channels`; empty if there are none
  std::vector<GuideChannel> channels;  // in channel order, including those without programmes
};

// Reads the guide of a source: the programmes that overlap `span`, of the channel with this number
// or, if the number is empty, of all channels. Throws std::runtime_error if a file
// cannot be read.
Guide readGuide(const std::string& channelDatabase, const std::string& eventDatabase,
                const Source& source, Span span, const std::string& number);

// Returns the first `count` programmes of a channel that end after `after`. `key` is the channel's
// key.
std::vector<Programme> readProgrammes(const std::string& eventDatabase, const Source& source,
                                      const std::string& key, int64_t after, int count);

}  // namespace apps::tv

#endif  // ATSC_TV_GUIDE_GUIDE_H_
