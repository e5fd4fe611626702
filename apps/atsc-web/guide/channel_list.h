// The channel list of a source.
#ifndef ATSC_WEB_GUIDE_CHANNEL_LIST_H_
#define ATSC_WEB_GUIDE_CHANNEL_LIST_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/source.h"
#include "guide/json_text.h"
#include "guide/service_file.h"

namespace web {

// A row of the channel table. Texts are valid UTF-8.
struct ChannelRow {
  int64_t row = 0;  // ch_index
  int64_t major = 0;
  int64_t minor = 0;
  int64_t frequency = 0;  // Hz
  int64_t flags = 0;      // bits: 0x1 visible, 0x4 locked, 0x8 skipped, 0x20 deleted
  int64_t favourites = 0;
  int64_t record = 0;  // service_record
  int64_t sourceId = 0;
  int64_t tsid = 0;
  int64_t audioIndex = 0;  // 0: none chosen
  bool manual = false;     // build_from_pmt
  std::string name;        // empty without a name
  std::string type;        // "TV", "RADIO" or "DATA"
  std::string key;         // ch_id_pk
  std::string audio;       // audio_pid
  std::string video;       // video_pid

  bool isDeleted() const { return (flags & 0x20) != 0; }
  // Returns the number as viewers write it: "7-1"; a one-part number of cable as "512".
  std::string number(const apps::Source& source) const;
};

bool operator==(const ChannelRow& a, const ChannelRow& b);

// Writes a channel as a JSON object.
void writeChannel(JsonText& json, const apps::Source& source, const ChannelRow& channel);

// All channels of a source, except those that the receiver is about to remove. Never changes.
class ChannelList {
 public:
  ChannelList() = default;
  explicit ChannelList(std::vector<ChannelRow> rows);

  // In the order of their numbers.
  const std::vector<ChannelRow>& rows() const { return rows_; }
  // Return null if there is no such channel.
  const ChannelRow* withRow(int64_t row) const;
  const ChannelRow* withKey(std::string_view key) const;

 private:
  std::vector<ChannelRow> rows_;
  std::vector<uint32_t> byRow_, byKey_;  // positions, sorted
};

// Reads the list of a source; an empty one if there is no table. Throws SQLite::Exception.
std::vector<ChannelRow> readChannelRows(ServiceFile& file, const apps::Source& source,
                                        const std::function<bool()>& goesOn);

}  // namespace web

#endif  // ATSC_WEB_GUIDE_CHANNEL_LIST_H_
