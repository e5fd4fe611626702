// A row of a channel table: the values that a synchronisation writes for one service, and the SQL
// texts that write them.
#ifndef ATSC_ATSC_SERVICE_DB_CHANNEL_ROW_H_
#define ATSC_ATSC_SERVICE_DB_CHANNEL_ROW_H_

#include <aisrv.h>

#include <array>
#include <string>
#include <string_view>

#include "atsc_log.h"
#include "atsc_service_db.h"

namespace atsc {

// The elementary streams of a service as the channel tables show them.
struct StreamTexts {
  std::string audio_pid;
  std::string video_pid;
  unsigned audio_count = 0;
  unsigned video_count = 0;
};

// The texts of a service's row.
struct ServiceTexts {
  StreamTexts streams;
  std::string name;
  std::string key;
};

// Builds the texts of a service. The PID texts are empty when the middleware cannot list the
// streams.
ServiceTexts readTexts(const AISRV_service_info& service, const LogPlace& place);

// The columns that a synchronisation writes, in the order of the insertion.
enum ChannelColumn {
  kName,
  kBuildFromPmt,
  kMajor,
  kMinor,
  kServiceRecord,
  kSourceId,
  kFrequency,
  kServiceType,
  kServiceFlag,
  kFavouriteGroup,
  kServiceDelete,
  kAudioPid,
  kVideoPid,
  kAudioCount,
  kVideoCount,
  kUpdateTime,
  kChannelKey,
  kTransportStreamId,
  kTunerType,
  kChannelColumns,
};

inline constexpr std::array<std::string_view, kChannelColumns> kColumnNames = {
    "name",           "build_from_pmt", "major_no",  "minor_no",    "service_record",
    "source_id",      "freq",           "srv_type",  "srv_flag",    "fav_group",
    "service_delete", "audio_pid",      "video_pid", "audio_count", "video_count",
    "update_time",    "ch_id_pk",       "tsid",      "tuner_type"};

using ColumnOrder = std::array<ChannelColumn, kChannelColumns>;

inline constexpr ColumnOrder kInsertOrder = {
    kName,      kBuildFromPmt, kMajor,       kMinor,          kServiceRecord, kSourceId,
    kFrequency, kServiceType,  kServiceFlag, kFavouriteGroup, kServiceDelete, kAudioPid,
    kVideoPid,  kAudioCount,   kVideoCount,  kUpdateTime,     kChannelKey,    kTransportStreamId,
    kTunerType};

inline constexpr ColumnOrder kUpdateOrder = {
    kName,          kBuildFromPmt, kServiceRecord,     kMajor,       kMinor,
    kSourceId,      kFrequency,    kServiceType,       kServiceFlag, kFavouriteGroup,
    kServiceDelete, kUpdateTime,   kAudioPid,          kVideoPid,    kAudioCount,
    kVideoCount,    kTunerType,    kTransportStreamId, kChannelKey};

// The values of a row, by column.
using ChannelRow = std::array<ColumnView, kChannelColumns>;

// The row of a service that is written at `update_time`. Its texts are those of `texts`.
ChannelRow channelRow(const AISRV_service_info& service, const ServiceTexts& texts,
                      uint32_t update_time);

// The text after "INSERT INTO table" and after "UPDATE table SET ", with a "?" for each value.
std::string insertPattern();
std::string updatePattern();

// Appends a pattern with the values of a row.
void appendFilled(sqlString& text, std::string_view pattern, const ColumnOrder& order,
                  const ChannelRow& row);

}  // namespace atsc

#endif  // ATSC_ATSC_SERVICE_DB_CHANNEL_ROW_H_
