#include <gmock/gmock.h>

#include <thread>

#include "fixture.h"
#include "idtv/server/atsc_server_tv.h"

namespace {

using TransportTest = LibraryTest;
constexpr unsigned kJSON = 0x4A534F4E;

TEST_F(TransportTest, NullCommandSendsNothing) {
  char* result = reinterpret_cast<char*>(1);
  EXPECT_EQ(-1, ATSC_TransmitTVClientJSONCommand(nullptr, &result));
  EXPECT_EQ(nullptr, result);
  EXPECT_TRUE(fake::sent().empty());
  EXPECT_TRUE(fake::logged("Error", "command is NULL."));
  EXPECT_NE("", fake::logLine("tv/client: ["));
}

TEST_F(TransportTest, CommandWithoutReplyTextYieldsNullAndTheResult) {
  char* result = reinterpret_cast<char*>(1);
  EXPECT_EQ(-1, ATSC_TransmitServiceClientJSONCommand("{\"class\":\"XYZ\"}", &result));
  EXPECT_EQ(nullptr, result);
  EXPECT_TRUE(fake::logged("Debug", "result is NULL."));
  EXPECT_TRUE(fake::logged("Error", "Class(XYZ) is not supported"));
}

TEST_F(TransportTest, WarnsOnlyOnTheOppositeServersThread) {
  // This thread was the service server's thread before, so sending a callback from it blocks it.
  send("{\"class\":\"MSC\",\"command\":\"LOGCTL\"}");
  ATSC_TransmitTVClientJSONCommand("{}", nullptr);
  EXPECT_TRUE(fake::logged("Warn", "Service call command({}) in IPC server thread"));
  EXPECT_EQ(Lines{"{}"}, fake::sent());
  fake::reset();
  std::thread([] { ATSC_TransmitTVClientJSONCommand("{}", nullptr); }).join();
  EXPECT_FALSE(fake::logged("Warn", "Service call command({}) in IPC server thread"));
  EXPECT_EQ(Lines{"{}"}, fake::sent());
}

TEST_F(TransportTest, OtherTransactionCodesAreAnsweredWithNothing) {
  BUSParam data;
  BUSParam reply;
  data.writeCString("{\"class\":\"XYZ\"}");
  EXPECT_EQ(0, g_atsc_server_service.onTransact(1, data, &reply, 0));
  reply.writeInt32(77);
  EXPECT_EQ(77, reply.readInt32());  // the first item
  EXPECT_EQ(-1, g_atsc_server_service.onTransact(kJSON, data, nullptr, 0));
}

// A backend that answers with a text, or throws.
class Backend : public ATSCBUS::ATSCTVServerBackend {
 public:
  int jsonCommand(const char* command, char** result) override {
    received.push_back(command);
    if (throws) throw std::runtime_error("lost");
    if (answer != nullptr) *result = strdup(answer);
    return 5;
  }
  Lines received;
  const char* answer = nullptr;
  bool throws = false;
};

TEST_F(TransportTest, TVServerHandsMessagesToItsBackend) {
  Backend backend;
  ATSCBUS::ATSCServerTV server(&backend);
  char* result = nullptr;
  EXPECT_EQ(5, ATSC_TransmitTVClientJSONCommand("{\"a\":1}", &result));
  EXPECT_EQ(nullptr, result);
  backend.answer = "";  // an empty text is sent
  EXPECT_EQ(5, ATSC_TransmitTVClientJSONCommand("{\"a\":2}", &result));
  EXPECT_STREQ("", result);
  free(result);
  backend.throws = true;
  EXPECT_EQ(-1, ATSC_TransmitTVClientJSONCommand("{\"a\":3}", nullptr));
  EXPECT_EQ((Lines{"{\"a\":1}", "{\"a\":2}", "{\"a\":3}"}), backend.received);
}

TEST_F(TransportTest, DefaultBackendStandsInAndSaysSo) {
  ATSCBUS::ATSCServerTV server(nullptr);
  testing::internal::CaptureStdout();
  EXPECT_EQ(-1, ATSC_TransmitTVClientJSONCommand("{\"a\":1}", nullptr));
  EXPECT_EQ(
      "[jsonCommand]command {\"a\":1}\n\033[1;5;33m[ATSC] This function "
      "'ATSCTVServerBackend::jsonCommand()' isn't implemented yet !!!\033[0m\n",
      testing::internal::GetCapturedStdout());
  Backend backend;
  server.RegisterBackend(&backend);
  EXPECT_EQ(5, ATSC_TransmitTVClientJSONCommand("{}", nullptr));
  server.RegisterBackend(nullptr);
  testing::internal::CaptureStdout();
  EXPECT_EQ(-1, ATSC_TransmitTVClientJSONCommand("{}", nullptr));
  testing::internal::GetCapturedStdout();
}

TEST_F(TransportTest, ATVServerNeedsABackend) {
  EXPECT_EQ(-1, ATSC_RegisterTVServerBackend(nullptr));
  EXPECT_TRUE(fake::logged("Error", "TV-server-backend is NULL"));
}

TEST_F(TransportTest, EveryLogLineBeginsWithItsPlace) {
  send("{\"class\":\"XYZ\"}");
  EXPECT_THAT(fake::logLine("is not supported"),
              ::testing::MatchesRegex("Error service/srv: \\[" + std::to_string(getpid()) +
                                      "\\]\\[jsonCommand\\(\\)\\]\\[atsc_server_service_dispatch"
                                      "\\.cpp:[0-9]+\\] Class\\(XYZ\\) is not supported"));
}

}  // namespace
