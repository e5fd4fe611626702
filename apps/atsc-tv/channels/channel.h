// Single channels: how they are named, found and described.
#ifndef ATSC_TV_CHANNELS_CHANNEL_H_
#define ATSC_TV_CHANNELS_CHANNEL_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "channels/source.h"

namespace tv {

// Attribute flags in the column srv_flag and in replies.
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
  std::string name;       // a printable line
  int64_t flags = 0;      // ChannelFlag
  int64_t favourites = 0;
  int64_t serviceRecord = 0xFFFF;
  bool hasStreams = true;  // audio or video; true where the channel list was not asked
  bool isData = false;     // a data service, which needs none
  std::string audioPids;   // as in the column audio_pid
  int64_t audioIndex = 0;  // track chosen by hand, from 1; 0: none

  // "7-1", or "512" where it has one part.
  std::string number() const;
  // The channel's key in both databases.
  std::string key() const;
  bool isSameAs(const Channel& other) const;
};

struct ChannelNumber {
  uint16_t major;
  uint16_t minor;  // 0 where the number has one part
};

// The number of a text like "7-1" or "1203", nothing when it is none.
std::optional<ChannelNumber> parseChannelNumber(const std::string& text);

// Checks a command-line option: the reason why `text` is no channel number, empty when it is one.
std::string channelNumberFault(const std::string& text);

// The bit of a favourite group, 1 to kFavouriteGroups.
int64_t favouriteBit(uint32_t group);

// The channels of a source in channel order; none when there is no list.
std::vector<Channel> listedChannels(const std::string& database, const Source& source);

// Those with this number, in the service's order; it may be received on several frequencies.
std::vector<Channel> listedChannels(const std::string& database, const Source& source,
                                    ChannelNumber number);

// Whether there is a channel of any source.
bool hasChannels(const std::string& database);

// "favourite group 2, locked"; empty when there is nothing to say.
std::string markWords(int64_t flags, int64_t favourites);

// "Terrestrial (VSB), RF 8, 183.000 MHz".
std::string placeWords(const Channel& channel);

// Number, name and marks in one line.
std::string channelLine(const Channel& channel);

// What follows that where neither audio nor video is known of the channel; empty otherwise.
const char* streamRemark(const Channel& channel);

}  // namespace tv

#endif  // ATSC_TV_CHANNELS_CHANNEL_H_
