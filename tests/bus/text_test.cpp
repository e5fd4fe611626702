#include <gmock/gmock.h>

#include "atsc_text.h"
#include "fixture.h"

namespace {

using ::testing::ElementsAre;
using TextTest = LibraryTest;

TEST_F(TextTest, LengthsInUtf8AndBadInput) {
  EXPECT_EQ(1u + 2 + 2 + 3, Utili_UTF16BEToUTF8Length("\x00\x7F\x00\x80\x07\xFF\x08\x00", 8));
  char out[8];
  uint32_t capacity = sizeof out;
  const char bytes[] = {0, 'A', 0, 'B', 0};
  EXPECT_EQ(0u, Utili_UTF16BEToUTF8Length(bytes, 5));
  EXPECT_EQ(-1, Utili_ConvertUTF16BEToUTF8(bytes, 5, out, &capacity));
  EXPECT_EQ(0u, Utili_UTF16BEToUTF8Length(nullptr, 2));
  EXPECT_EQ(-1, Utili_ConvertUTF16BEToUTF8(bytes, 4, nullptr, &capacity));
  EXPECT_EQ(-1, Utili_ConvertUTF16BEToUTF8(bytes, 4, out, nullptr));
  const std::string odd = "UTF16Len MUST be even";
  const std::string null = "input parameter is null.";
  EXPECT_THAT(logsOf("Error"), ElementsAre(odd, odd, null, null, null));
}

TEST_F(TextTest, ServiceRecordsGetSlotsOf50BytesWith40Usable) {
  AISRV_service_info records[3] = {};
  const uint32_t count = 3;
  uint8_t names[150];
  Utili_allocSrvMem(records, &count, names);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(names + 50 * i, records[i].name.text);
    EXPECT_EQ(40, records[i].name.length);
  }
  // The print reads the slot, whatever the length, and not beyond it.
  records[0] = fake::service(7, 1, 177000000, "").info;
  records[0].AISRV_fav_group_ = 0x30;
  records[0].AISRV_flags_ = 0x2C;
  std::vector<uint8_t> slot(50, 'N');
  records[0].name = {slot.data(), 4, 0};
  Utili_printSrvInfo(records);
  EXPECT_THAT(logsOf("Info"), ElementsAre("Channel No(7-1), freq(177000000), fav(30), flag(2c), "
                                          "name(" +
                                          std::string(50, 'N') + ")"));
}

TEST_F(TextTest, AudioIndexComesFromTheSourcesTable) {
  execute(
      "CREATE TABLE channel_data_t (major_no, minor_no, freq, audio_index);"
      "CREATE TABLE channel_data_c (major_no, minor_no, freq, audio_index);"
      "INSERT INTO channel_data_t VALUES (7, 1, 177000000, 2);"
      "INSERT INTO channel_data_c VALUES (7, 1, 177000000, 3)");
  AISRV_service_info record = fake::service(7, 1, 177000000, "").info;
  const std::pair<uint32_t, uint32_t> expected[] = {{0, 2}, {2, 2}, {1, 3}, {3, 3}, {4, 65535}};
  for (const auto& [source, index] : expected) {
    record.service_id.input_source = source;
    EXPECT_EQ(index, ATSC_Service_getAudioIndex_fromDB(&record)) << source;
  }
  record = fake::service(7, 1, 1, "").info;
  EXPECT_EQ(65535u, ATSC_Service_getAudioIndex_fromDB(&record));
}

}  // namespace
