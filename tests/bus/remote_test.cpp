// Commands of the remote control: channels and what is read.
#include <gmock/gmock.h>

#include "fixture.h"

namespace {

using ::testing::Contains;

class RemoteTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    _ATSC_Service_db_createChannelDB();
    fake::reset();
  }

  // Sets the services of the middleware and writes the channel table.
  void list(int source, const std::vector<fake::Service>& services) {
    fake::setServices(static_cast<uint32_t>(source), services);
    ASSERT_EQ(1, ATSC_Service_db_UpdateChannel(source));
  }

  // Returns the record that the library wrote last.
  static std::string written() {
    const fake::Service service = fake::state()->modified;
    const AISRV_service_info& info = service.info;
    std::ostringstream text;
    text << info.service_id.service_rec << '@' << info.service_id.input_source << ' ' << info.major
         << '-' << info.minor << ' ' << info.frequency << " type " << info.service_type << std::hex
         << " modulation " << info.modulation << " flags " << info.AISRV_flags_ << " groups "
         << info.AISRV_fav_group_ << " pmt " << unsigned{info.build_from_pmt} << " name "
         << info.name.encoding << ' ' << service.name;
    return text.str();
  }
};

TEST_F(RemoteTest, AttributesOfAChannel) {
  // Members of the request, flags and groups before, the record after, a line of the log.
  const std::string cases = R"(
,"type":"skip" | 21 | 10 | flags 29 groups 10 | Info Skip channel
,"type":"unskip" | 2D | 0 | flags 25 groups 0 | Info Unskip channel
,"type":"delete" | 1 | 0 | flags 21 groups 0 | Info Delete channel
,"type":"undelete" | 2D | 0 | flags d groups 0 | Info Undelete channel
,"type":"lock" | 1 | 0 | flags 5 groups 0 | Info Lock channel
,"type":"unlock" | 2D | 0 | flags 29 groups 0 | Info Unlock channel
,"type":"fav","group":1 | 1 | 20 | flags 1 groups 30 | Info set channel fav
,"type":"fav","group":28 | 1 | 1 | flags 1 groups 80000001 | Info set channel fav
,"type":"unfav","group":2 | 1 | 3F | flags 1 groups 1f | Info unset channel fav
,"type":"fav" | 1 | 20 | flags 1 groups 20 | Error fav group setting is 0
,"type":"unfav","group":29 | 1 | 30 | flags 1 groups 30 | Info unset channel fav
,"type":"Skip" | 5 | 20 | flags 5 groups 20 | Info modify channel(7-2)
)";
  for (const Lines& row : tableOf(cases, 5)) {
    SCOPED_TRACE(row[0]);
    fake::reset();
    fake::Service second = fake::service(7, 2, 177000000, "TWO");
    second.info.AISRV_flags_ = static_cast<uint32_t>(std::stoul(row[1], nullptr, 16));
    second.info.AISRV_fav_group_ = static_cast<uint32_t>(std::stoul(row[2], nullptr, 16));
    fake::setServices(
        2, {fake::service(7, 1, 177000000, "ONE"), second, fake::service(7, 2, 183000000, "TWIN")});
    fake::setCurrent(second, 2);
    const std::string request = R"(FW CHANNELMODIFY "major":7,"minor":2)" + row[0];
    EXPECT_EQ(0, ask(request).result);
    EXPECT_EQ("702@2 7-2 177000000 type 1 modulation 40 " + row[3] + " pmt 0 name 1 " + second.name,
              written());
    EXPECT_THAT(fake::logs(), Contains(row[4]));
    // A lock of the channel that plays comes from the application, no other lock.
    const bool lock = request.find("lock") != std::string::npos;
    const Lines told = {"AICN_set_play_from_ap(1)", "AIFW_modify_service(8,*)"};
    EXPECT_EQ(lock ? told : Lines{told[1]}, callsOf({"AICN_set_play", "AIFW_"}));
    for (const auto& [record, input, result] :
         {std::tuple{701u, 2u, 0}, std::tuple{702u, 3u, 0}, std::tuple{702u, 2u, 1}}) {
      second.info.service_id = {record, input};
      fake::setCurrent(second, 2);
      fake::setResult("AICN_get_current", result);
      ask(request);
    }
    EXPECT_EQ(lock ? 1u : 0u, callsOf({"AICN_set_play"}).size());
  }
}

TEST_F(RemoteTest, ModifyWritesBackThenSynchronises) {
  fake::setServices(3, {fake::service(23, 1, 219000000, "CABLE", 3)});
  const std::string request = R"(FW CHANNELMODIFY "major":23,"minor":1,"src":"QAM","type":"skip")";
  testing::internal::CaptureStdout();
  EXPECT_EQ(0, ask(request).result);
  EXPECT_EQ("total_service_info[0].service_id.service_rec 2301(23-1)\n",
            testing::internal::GetCapturedStdout());
  EXPECT_EQ(
      "AISRV_get_total_services(3,4103,*,0,*) AISRV_get_n_services(3,4103,0,*,0,0,*,*) "
      "AIFW_modify_service(8,*) AIST_get_cur_time_secs(*) AISRV_get_total_services(3,4103,*,0,*) "
      "AISRV_get_n_services(3,4103,0,*,0,0,*,*) AISRV_get_pid_details(*,*) "
      "AISRV_sync_to_database()",
      joined(fake::calls()));
  fake::setResult("AIFW_modify_service", 4);
  EXPECT_EQ(-1, ask(request).result);
  EXPECT_EQ(2u, callsOf({"AISRV_sync_to_database"}).size()) << "synchronised all the same";

  // A service that is not listed or cannot be read is not written.
  fake::reset();
  fake::setServices(3, {fake::service(23, 1, 219000000, "CABLE", 3)});
  for (const char* other : {R"("major":65559,"minor":1,"src":"QAM")", R"("major":23,"minor":1)",
                            R"("major":23,"minor":2,"src":"QAM")"}) {
    EXPECT_EQ(-1, ask(std::string("FW CHANNELMODIFY ") + other).result) << other;
    fake::state()->claimedCount = 70000;
  }
  for (const char* failing : {"AISRV_get_n_services", "AISRV_get_total_services"}) {
    fake::setResult(failing, 1);
    EXPECT_EQ(-1, ask(request).result);
  }
  EXPECT_EQ(Lines{}, callsOf({"AIFW_modify_service"}));
}

TEST_F(RemoteTest, AddedChannel) {
  const std::string name = std::string(5000, 'n') + "\xC3\xA9";
  const std::string add = "FW CHANNELADD ";
  EXPECT_EQ(0, ask(add + R"("major":9,"minor":4,"freq":4294967295,"name":")" + name + '"').result);
  EXPECT_TRUE(fake::logged("Info", "add channel(9-4) frequency -1"));
  EXPECT_EQ("0@2 9-4 4294967295 type 1 modulation 40 flags 1 groups 0 pmt 1 name 0 " + name,
            written());
  ask(add + R"("src":"QAM","major":1203)");
  EXPECT_EQ("0@3 1203-0 0 type 1 modulation 400 flags 1 groups 0 pmt 1 name 0 ", written());
  // The longest values of a record, and one more.
  const std::pair<std::string, int> limits[] = {{R"("major":65535,"minor":65535)", 0},
                                                {R"("major":65536)", -1},
                                                {R"("minor":65536)", -1},
                                                {R"("name":")" + std::string(65536, 'x') + '"', -1},
                                                {R"("name":")" + std::string(65535, 'x') + '"', 0}};
  for (const auto& [members, result] : limits) EXPECT_EQ(result, ask(add + members).result);
  EXPECT_EQ(65535u, fake::state()->modified.name.size());
  EXPECT_EQ(4u, callsOf({"AIFW_modify_service"}).size());
}

TEST_F(RemoteTest, AudioIndexOfTheCurrentChannelIsStored) {
  list(2, {fake::service(7, 1, 177000000, "ONE"), fake::service(7, 2, 177000000, "TWO")});
  list(3, {fake::service(7, 1, 177000000, "CABLE", 3), fake::service(7, 2, 177000000, "TWO", 3)});
  fake::setCurrent(fake::service(7, 1, 177000000, "CABLE", 3), 2);  // the record decides
  EXPECT_EQ(0, ask(R"(AUD CHANGE "index":2)").result);
  fake::setResult("AIFW_change_audio", 1);
  EXPECT_EQ(-1, ask(R"(AUD CHANGE "index":0)").result);
  EXPECT_EQ("7-1-177000000| 7-2-177000000| 7-1-177000000|3 7-2-177000000|",
            joined(rows("SELECT ch_id_pk, audio_index FROM channel_data_t UNION ALL "
                        "SELECT ch_id_pk, audio_index FROM channel_data_c")));
}

TEST_F(RemoteTest, CurrentService) {
  fake::Service service = fake::service(7, 1, 4000000000, "SEVEN");
  service.info.source_id = 4;
  service.info.AISRV_fav_group_ = 0x30;
  service.info.AISRV_flags_ = 9;
  list(2, {fake::service(5, 1, 177000000, ""), service});
  list(3, {service});
  // The bytes of the name, its part of the reply, and the row in the table of the current source.
  const std::tuple<std::string, int, int, std::string, int> cases[] = {
      {{"\0K\0\xC9\x20\xAC", 6}, AI_TEXT_UTF16BE, 2, R"({"chn_name":"KÉ€",)", 2},
      {"single", 0, 3, R"({"chn_name":"single",)", 1},
      {"", 0, 2, "{", 2}};
  for (const auto& [name, encoding, input, named, row] : cases) {
    service.name = name;
    service.nameEncoding = encoding;
    fake::setCurrent(service, input);
    EXPECT_EQ(named + R"("fav_group":48,"freq":4000000000,"major":7,"minor":1,"source_id":4,)" +
                  R"("srv_flag":9,"srv_rec":)" + std::to_string(row) + '}',
              plain(ask("SRV GETCUR").text));
  }
  service.info.source_id = 5;  // not in the table
  fake::setCurrent(service, 2);
  EXPECT_EQ(65535, json(ask("SRV GETCUR").text)["srv_rec"].asInt());
  EXPECT_TRUE(fake::logged("Error", " AICN_get_current fail\n"));
}

TEST_F(RemoteTest, TimeSetting) {
  const char* const zones[] = {"SKST", "TST", "GMT", "NST",  "AST",  "EST",
                               "CST",  "MST", "PST", "AKST", "HAST", "HST"};
  for (int zone = 0; zone < 12; ++zone) {
    fake::state()->timeInfo = {zone, zone - 420, zone % 3, {}};
    EXPECT_EQ(std::string(R"({"mode":")") + (zone % 3 == 1 ? "AUTO" : "MANUAL") + R"(","offset":)" +
                  std::to_string(zone - 420) + R"(,"time_zone":")" + zones[zone] + "\"}",
              plain(ask("TIME GETSETTING").text));
    ask(std::string(R"(TIME SETTIMEZONE "zone":")") + zones[zone] + '"');
    EXPECT_EQ("AIST_set_current_time_zone(" + std::to_string(zone) + ")", fake::calls().back());
  }
  for (const int unknown : {-1, 12}) {
    fake::state()->timeInfo = {unknown, INT32_MIN, 1, {}};
    EXPECT_EQ(R"({"mode":"AUTO","offset":-2147483648,"time_zone":"EST"})",
              plain(ask("TIME GETSETTING").text));
  }
}

}  // namespace
