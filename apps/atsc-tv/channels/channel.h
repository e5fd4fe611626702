// Channels: parses their numbers, reads them from the channel list and describes them.
#ifndef ATSC_TV_CHANNELS_CHANNEL_H_
#define ATSC_TV_CHANNELS_CHANNEL_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/source.h"

namespace apps::tv {

// Attribute flags in the column srv_flag and in replies of the service.
enum ChannelFlag : int64_t {
  kVisible = 0x1,
  kLocked = 0x4,
  kSkipped = 0x8,
  kDeleted = 0x20,
};

constexpr uint32_t kFavouriteGroups = 28;

struct Channel {
  const Source* source = nullptr;  // never null
  int64_t major = 0;
  int64_t minor = 0;
  int64_t frequency = 0;  // Hz
  std::string name;       // one printable line
  int64_t flags = 0;      // ChannelFlag
  int64_t favourites = 0;
  int64_t serviceRecord = 0xFFFF;
  bool hasStreams = true;  // has audio or video; true if not read from the channel list
  bool isData = false;     // a data service, which needs no audio or video
  std::string audioPids;   // the column audio_pid
  int64_t audioIndex = 0;  // the track that the user chose, from 1; 0: none

  // Returns the number as "7-1", or as "512" for a one-part number.
  std::string number() const;
  // Returns the channel's key in both databases.
  std::string key() const;
  bool isSameAs(const Channel& other) const;
};

struct ChannelNumber {
  uint16_t major;
  uint16_t minor;  // 0 for a one-part number
};

// Parses a number such as "7-1" or "1203". Returns nothing if `text` is not a channel number.
std::optional<ChannelNumber> parseChannelNumber(const std::string& text);

// Checks a command-line option. Returns the error message for a text that is not a channel number,
// else an empty text.
std::string channelNumberFault(const std::string& text);

// Returns the bit of a favourite group, from 1 to kFavouriteGroups.
int64_t favouriteBit(uint32_t group);

// Returns the channels of a source in channel order, none if there is no channel list.
std::vector<Channel> listedChannels(const std::string& database, const Source& source);

// Returns the channels of a source with a number, in the service's order. The number may be
// received on several frequencies.
std::vector<Channel> listedChannels(const std::string& database, const Source& source,
                                    ChannelNumber number);

// Returns whether the channel list of any source has a channel.
bool hasChannels(const std::string& database);

// Describes the marks of a channel as "favourite group 2, locked"; returns an empty text for none.
std::string markWords(int64_t flags, int64_t favourites);

// Describes source and frequency as "Terrestrial (VSB), RF 8, 183.000 MHz".
std::string placeWords(const Channel& channel);

// Describes number, name and marks in one line.
std::string channelLine(const Channel& channel);

// Returns a remark to append to channelLine() for a channel without known audio and video, else an
// empty text.
const char* streamRemark(const Channel& channel);

}  // namespace apps::tv

#endif  // ATSC_TV_CHANNELS_CHANNEL_H_
