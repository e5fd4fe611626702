#include <gmock/gmock.h>

#include <thread>

#include "fixture.h"
#include "idtv/server/atsc_server_tv.h"

namespace {

using TransportTest = LibraryTest;
constexpr unsigned kJSON = 0x4A534F4E;

TEST_F(TransportTest, CommandsAndRepliesThatAreNoText) {
  char* result = reinterpret_cast<char*>(1);
  EXPECT_EQ(-1, ATSC_TransmitTVClientJSONCommand(nullptr, &result));
  EXPECT_EQ(nullptr, result);
  EXPECT_EQ(Lines{}, fake::sent());
  EXPECT_TRUE(fake::logged("Error", "command is NULL."));
  EXPECT_NE("", fake::logLine("tv/client: ["));
  result = reinterpret_cast<char*>(1);
  EXPECT_EQ(-1, ATSC_TransmitServiceClientJSONCommand(R"({"class":"XYZ"})", &result));
  EXPECT_EQ(nullptr, result);
  EXPECT_TRUE(fake::logged("Debug", "result is NULL."));
  EXPECT_THAT(fake::logLine("is not supported"),
              ::testing::MatchesRegex("Error service/srv: \\[" + std::to_string(getpid()) +
                                      "\\]\\[jsonCommand\\(\\)\\]\\[atsc_server_service_dispatch"
                                      "\\.cpp:[0-9]+\\] Class\\(XYZ\\) is not supported"));
}

TEST_F(TransportTest, OtherTransactionCodesAreAnsweredWithNothing) {
  BUSParam data;
  BUSParam reply;
  data.writeCString(R"({"class":"XYZ"})");
  EXPECT_EQ(0, g_atsc_server_service.onTransact(1, data, &reply, 0));
  reply.writeInt32(77);
  EXPECT_EQ(77, reply.readInt32());  // the first item
  EXPECT_EQ(-1, g_atsc_server_service.onTransact(kJSON, data, nullptr, 0));
}

// A backend that answers with a text, or throws. It has one command at a time.
class Backend : public ATSCBUS::ATSCTVServerBackend {
 public:
  int jsonCommand(const char* command, char** result) override {
    overlaps = overlaps || busy.exchange(true);
    received.push_back(command);
    if (slow) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    busy = false;
    if (throws) throw std::runtime_error("lost");
    if (answer != nullptr) *result = strdup(answer);
    return 5;
  }
  Lines received;
  const char* answer = nullptr;
  bool throws = false;
  bool slow = false;
  bool overlaps = false;
  std::atomic<bool> busy{false};
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

// The set's own programs use one client from several threads.
TEST_F(TransportTest, AClientSendsOneCommandAtATime) {
  Backend backend;
  backend.slow = true;
  ATSCBUS::ATSCServerTV server(&backend);
  std::atomic<int> inside{0}, most{0};
  fake::onCall([&](const std::string&) {
    most = std::max<int>(most, ++inside);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    --inside;
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      ATSC_TransmitTVClientJSONCommand("{}", nullptr);
      send(command("FW PLAY"));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(backend.overlaps);
  EXPECT_EQ(1, most);
}

TEST_F(TransportTest, DefaultBackendStandsInAndSaysSo) {
  ATSCBUS::ATSCServerTV server(nullptr);
  const auto transmit = [] {
    testing::internal::CaptureStdout();
    EXPECT_EQ(-1, ATSC_TransmitTVClientJSONCommand("{\"a\":1}", nullptr));
    EXPECT_EQ(
        "[jsonCommand]command {\"a\":1}\n\033[1;5;33m[ATSC] This function "
        "'ATSCTVServerBackend::jsonCommand()' isn't implemented yet !!!\033[0m\n",
        testing::internal::GetCapturedStdout());
  };
  transmit();
  Backend backend;
  server.RegisterBackend(&backend);
  EXPECT_EQ(5, ATSC_TransmitTVClientJSONCommand("{}", nullptr));
  server.RegisterBackend(nullptr);
  transmit();
  EXPECT_EQ(-1, ATSC_RegisterTVServerBackend(nullptr));
  EXPECT_TRUE(fake::logged("Error", "TV-server-backend is NULL"));
}

TEST_F(TransportTest, WarnsOnlyOnTheOppositeServersThread) {
  // This thread is the service server's thread, so sending a callback from it blocks it.
  const std::string warning = "Service call command({}) in IPC server thread";
  send(command("MSC LOGCTL"));
  fake::reset();
  std::thread([] { ATSC_TransmitTVClientJSONCommand("{}", nullptr); }).join();
  EXPECT_EQ(Lines{}, logsOf("Warn"));
  ATSC_TransmitTVClientJSONCommand("{}", nullptr);
  EXPECT_EQ(Lines{warning}, logsOf("Warn"));
  EXPECT_EQ((Lines{"{}", "{}"}), fake::sent());
}

}  // namespace
