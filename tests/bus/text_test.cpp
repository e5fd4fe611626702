#include <gmock/gmock.h>

#include "atsc_service_event.h"
#include "atsc_text.h"
#include "fixture.h"

namespace {

class TextTest : public LibraryTest {
 protected:
  static Lines errors() {
    Lines lines;
    for (const std::string& line : fake::logs()) {
      if (line.rfind("Error ", 0) == 0) lines.push_back(line);
    }
    return lines;
  }
};

TEST_F(TextTest, BadInputIsLogged) {
  char out[8];
  uint32_t capacity = sizeof out;
  const char bytes[] = {0, 'A', 0, 'B', 0};
  EXPECT_EQ(0u, Utili_UTF16BEToUTF8Length(bytes, 5));
  EXPECT_EQ(-1, Utili_ConvertUTF16BEToUTF8(bytes, 5, out, &capacity));
  EXPECT_EQ(0u, Utili_UTF16BEToUTF8Length(nullptr, 2));
  EXPECT_EQ(-1, Utili_ConvertUTF16BEToUTF8(bytes, 4, nullptr, &capacity));
  EXPECT_EQ(-1, Utili_ConvertUTF16BEToUTF8(bytes, 4, out, nullptr));
  const std::string odd = "Error UTF16Len MUST be even";
  const std::string null = "Error input parameter is null.";
  EXPECT_THAT(errors(), ::testing::ElementsAre(odd, odd, null, null, null));
  // Texts in buffers of the middleware are handled in the same way.
  fake::reset();
  Json::Value message;
  uint8_t text[] = "odd";
  multiple_lang_t alert{text, 3, AI_TEXT_UTF16BE};
  AISRV_service_info record{};
  record.name = alert;
  ConvertEASAlertText(message, &alert);
  Utili_printSrvInfo(&record);
  EXPECT_THAT(errors(), ::testing::ElementsAre(odd, odd, odd, odd));
  alert.text = nullptr;
  ConvertEASAlertText(message, &alert);
  EXPECT_THAT(errors(), ::testing::ElementsAre(odd, odd, odd, odd, null, null));
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
}

TEST_F(TextTest, PrintsAServiceWithoutReadingPastItsSlot) {
  std::string name(50, 'N');  // no terminator
  AISRV_service_info record{};
  record.major = 7;
  record.minor = 1;
  record.frequency = 177000000;
  record.AISRV_fav_group_ = 0x30;
  record.AISRV_flags_ = 0x2C;
  const std::vector<uint8_t> slot(name.begin(), name.end());
  record.name = {const_cast<uint8_t*>(slot.data()), 4, 0};  // the length is ignored
  Utili_printSrvInfo(&record);
  EXPECT_TRUE(fake::logged(
      "Info", "Channel No(7-1), freq(177000000), fav(30), flag(2c), name(" + name + ")"));
}

TEST_F(TextTest, AudioIndexComesFromTheSourcesTable) {
  execute("CREATE TABLE channel_data_t (major_no, minor_no, freq, audio_index)");
  execute("CREATE TABLE channel_data_c (major_no, minor_no, freq, audio_index)");
  execute("INSERT INTO channel_data_t VALUES (7, 1, 177000000, 2)");
  execute("INSERT INTO channel_data_c VALUES (7, 1, 177000000, 3)");
  AISRV_service_info record = fake::service(7, 1, 177000000, "").info;
  const std::pair<uint32_t, uint32_t> expected[] = {{0, 2}, {2, 2}, {1, 3}, {3, 3}, {4, 65535}};
  for (const auto& [source, index] : expected) {
    record.service_id.input_source = source;
    EXPECT_EQ(index, ATSC_Service_getAudioIndex_fromDB(&record)) << source;
  }
  record.service_id.input_source = 2;
  record.frequency = 1;
  EXPECT_EQ(65535u, ATSC_Service_getAudioIndex_fromDB(&record));
}

}  // namespace
