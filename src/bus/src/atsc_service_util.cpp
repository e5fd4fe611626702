// Text conversion, service records and the stored audio track.
#include <SQLiteCpp/SQLiteCpp.h>
#include <aisrv.h>
#include <atsc/atsc_service.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "atsc_log.h"
#include "atsc_service_db.h"
#include "atsc_text.h"

ATSC_LOGGER("atsc/service")

namespace {

uint16_t unitAt(const uint8_t* bytes, uint32_t i) {
  return static_cast<uint16_t>(bytes[i] << 8 | bytes[i + 1]);
}

// Encodes one unit without logging, as a guide has millions of units. Returns the bytes written.
int encodeUnit(uint16_t unit, uint8_t* out) {
  if (unit <= 0x7F) {
    out[0] = static_cast<uint8_t>(unit);
    return 1;
  }
  if (unit < 0x800) {
    out[0] = static_cast<uint8_t>(0xC0 | unit >> 6);
    out[1] = static_cast<uint8_t>(0x80 | (unit & 0x3F));
    return 2;
  }
  out[0] = static_cast<uint8_t>(0xE0 | unit >> 12);
  out[1] = static_cast<uint8_t>(0x80 | (unit >> 6 & 0x3F));
  out[2] = static_cast<uint8_t>(0x80 | (unit & 0x3F));
  return 3;
}

// Returns the number of leading units that are ASCII characters other than NUL. Reads four units at
// a time, because most texts are ASCII and guides are long.
uint32_t asciiUnits(const uint8_t* bytes, uint32_t length) {
  uint32_t i = 0;
  for (; i + 8 <= length; i += 8) {
    uint64_t units;  // little-endian: a unit's high byte comes first
    memcpy(&units, bytes + i, sizeof units);
    constexpr uint64_t kSign = 0x8000800080008000;
    if ((units & 0x80FF80FF80FF80FF) != 0 || ((units + 0x7F007F007F007F00) & kSign) != kSign) break;
  }
  return i / 2;
}

// Copies the low bytes of so many units, a multiple of four.
void copyAsciiUnits(const uint8_t* bytes, uint32_t count, uint8_t* out) {
  for (uint32_t i = 0; i < count; i += 4) {
    uint64_t units;
    memcpy(&units, bytes + 2 * i, sizeof units);
    units = units >> 8 & 0x00FF00FF00FF00FF;
    units = (units | units >> 8) & 0x0000FFFF0000FFFF;
    const auto text = static_cast<uint32_t>(units | units >> 16);
    memcpy(out + i, &text, sizeof text);
  }
}

}  // namespace

namespace atsc {

int processId() {
  static std::atomic<int> pid{0};
  static const int forkHandler =
      pthread_atfork(nullptr, nullptr, [] { pid.store(getpid(), std::memory_order_relaxed); });
  (void)forkHandler;
  int id = pid.load(std::memory_order_relaxed);
  if (id == 0) {
    id = getpid();
    pid.store(id, std::memory_order_relaxed);
  }
  return id;
}

int checkStatus(LoggerCpp& logger, const LogPlace& place, const char* function, int status) {
  if (status != 0) {
    logger.Error("%-9s: [%d][%s()][%s:%d] Failed to call %s() -> 0x%08x: %s", place.tag,
                 processId(), place.function, place.file, place.line, function,
                 static_cast<unsigned>(status), place.signature);
  }
  return status;
}

void textToUTF8(const multiple_lang_t& text, uint32_t capacity, std::string& converted) {
  const uint32_t length = std::min<uint32_t>(text.length, capacity);
  if (text.encoding != AI_TEXT_UTF16BE) {
    const char* bytes = reinterpret_cast<const char*>(text.text);
    converted = std::string_view(bytes, bytes != nullptr ? strnlen(bytes, length) : 0);
    return;
  }
  uint32_t size = Utili_UTF16BEToUTF8Length(text.text, length);
  converted.resize(size);
  if (Utili_ConvertUTF16BEToUTF8(text.text, length, &converted[0], &size) < 0) converted.clear();
}

std::string textToUTF8(const multiple_lang_t& text, uint32_t capacity) {
  std::string converted;
  textToUTF8(text, capacity, converted);
  return converted;
}

std::string nameInSlot(const AISRV_service_info& service) {
  if (service.name.encoding == AI_TEXT_UTF16BE) return textToUTF8(service.name, kNameSlot);
  const char* bytes = reinterpret_cast<const char*>(service.name.text);
  return bytes != nullptr ? std::string(bytes, strnlen(bytes, kNameSlot)) : std::string();
}

}  // namespace atsc

int Utili_UnicodeToUTF8(uint16_t unit, void* out) {
  ATSC_ENTER();
  const int size = encodeUnit(unit, static_cast<uint8_t*>(out));
  ATSC_LEAVE();
  return size;
}

uint32_t Utili_UTF16BEToUTF8Length(const void* bytes, uint32_t length) {
  ATSC_ENTER();
  uint32_t size = 0;
  if (bytes == nullptr) {
    ATSC_LOG(Error, "input parameter is null.");
  } else if (length % 2 != 0) {
    ATSC_LOG(Error, "UTF16Len MUST be even");
  } else {
    const auto* units = static_cast<const uint8_t*>(bytes);
    size = asciiUnits(units, length);
    for (uint32_t i = 2 * size; i < length; i += 2) {
      const uint16_t unit = unitAt(units, i);
      if (unit == 0) break;
      size += 1u + (unit > 0x7F) + (unit >= 0x800);
    }
  }
  ATSC_LEAVE();
  return size;
}

int Utili_ConvertUTF16BEToUTF8(const void* bytes, uint32_t length, void* out, uint32_t* capacity) {
  ATSC_ENTER();
  int result = -1;
  if (bytes == nullptr || out == nullptr || capacity == nullptr) {
    ATSC_LOG(Error, "input parameter is null.");
  } else if (length % 2 != 0) {
    ATSC_LOG(Error, "UTF16Len MUST be even");
  } else {
    const auto* units = static_cast<const uint8_t*>(bytes);
    auto* const encoded = static_cast<uint8_t*>(out);
    // Reads no more units than fit: `length` may be more than the text has.
    const uint32_t ascii = asciiUnits(units, *capacity < length / 2 ? 2 * *capacity : length);
    copyAsciiUnits(units, ascii, encoded);
    uint32_t written = ascii;
    for (uint32_t i = 2 * ascii; i < length && written < *capacity; i += 2) {
      const uint16_t unit = unitAt(units, i);
      if (unit == 0) break;
      written += static_cast<uint32_t>(encodeUnit(unit, encoded + written));
    }
    *capacity = written;
    result = 1;
  }
  ATSC_LEAVE();
  return result;
}

void Utili_allocSrvMem(AISRV_service_info* records, const uint32_t* count, void* names) {
  ATSC_ENTER();
  // A 16-bit position: services beyond its range get no name buffer.
  const uint32_t linked = std::min<uint32_t>(*count, UINT16_MAX);
  for (uint32_t i = 0; i < linked; ++i) {
    records[i].name.text = static_cast<uint8_t*>(names) + atsc::kNameSlot * i;
    records[i].name.length = atsc::kNameCapacity;
  }
  ATSC_LEAVE();
}

void Utili_printSrvInfo(const AISRV_service_info* record) {
  ATSC_ENTER();
  try {
    const std::string name = atsc::nameInSlot(*record);
    ATSC_LOG(Info, "Channel No(%d-%d), freq(%d), fav(%x), flag(%x), name(%s)", record->major,
             record->minor, static_cast<int>(record->frequency), record->AISRV_fav_group_,
             record->AISRV_flags_, name.c_str());
  } catch (const std::exception& e) {
    ATSC_LOG(Error, "service not shown: %s", e.what());
  }
  ATSC_LEAVE();
}

uint32_t ATSC_Service_getAudioIndex_fromDB(const AISRV_service_info* record) {
  ATSC_ENTER();
  uint32_t audioIndex = ATSC_CHANNEL_NOT_FOUND;
  sqlString command;
  try {
    // For a source without a table the statement fails.
    const char* table = "";
    switch (record->service_id.input_source) {
      case 0:
      case AI_INPUT_TERRESTRIAL:
        table = atsc::channelTable(AI_INPUT_TERRESTRIAL);
        break;
      case 1:
      case AI_INPUT_CABLE:
        table = atsc::channelTable(AI_INPUT_CABLE);
        break;
      default:
        break;
    }
    command << "SELECT "
            << "audio_index"
            << " FROM " << table << " where major_no=" << record->major
            << " and minor_no=" << record->minor << " and freq=" << record->frequency;
    SQLite::Database database(atsc::channelDatabasePath(), SQLite::OPEN_READONLY,
                              atsc::kBusyTimeoutMs);
    ATSC_LOG(Debug, "sqlCommand: %s", command.str().c_str());
    SQLite::Statement row(database, command.str());
    if (row.executeStep()) audioIndex = row.getColumn(0).getUInt();
  } catch (const std::exception& e) {
    atsc::printDatabaseError(e, __func__, __LINE__, command.str());
  }
  ATSC_LOG(Trace, "LEAVE audioIndex(%d)", static_cast<int>(audioIndex));
  return audioIndex;
}
