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
  // Other transaction codes are answered with nothing.
  BUSParam data;
  BUSParam reply;
  data.writeCString(R"({"class":"XYZ"})");
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
    if (answer == nullptr) throw std::runtime_error("lost");
    if (*answer != '-') *result = strdup(answer);
    return 5;
  }
  Lines received;
  const char* answer = "-";  // "-" for no text, null to throw
};

TEST_F(TransportTest, TVServerHandsMessagesToItsBackend) {
  Backend backend;
  ATSCBUS::ATSCServerTV server(nullptr);
  server.RegisterBackend(&backend);
  char* result = nullptr;
  EXPECT_EQ(5, ATSC_TransmitTVClientJSONCommand("{\"a\":1}", &result));
  EXPECT_EQ(nullptr, result);
  backend.answer = "";  // an empty text is sent
  EXPECT_EQ(5, ATSC_TransmitTVClientJSONCommand("{\"a\":2}", &result));
  EXPECT_STREQ("", result);
  free(result);
  backend.answer = nullptr;
  EXPECT_EQ(-1, ATSC_TransmitTVClientJSONCommand("{\"a\":3}", nullptr));
  EXPECT_EQ((Lines{"{\"a\":1}", "{\"a\":2}", "{\"a\":3}"}), backend.received);
  // The default backend stands in and says so.
  server.RegisterBackend(nullptr);
  testing::internal::CaptureStdout();
  EXPECT_EQ(-1, ATSC_TransmitTVClientJSONCommand("{\"a\":4}", nullptr));
  EXPECT_EQ(
      "[jsonCommand]command {\"a\":4}\n\033[1;5;33m[ATSC] This function "
      "'ATSCTVServerBackend::jsonCommand()' isn't implemented yet !!!\033[0m\n",
      testing::internal::GetCapturedStdout());
  EXPECT_EQ(-1, ATSC_RegisterTVServerBackend(nullptr));
  EXPECT_TRUE(fake::logged("Error", "TV-server-backend is NULL"));
}

// The set's own programs use one client from several threads.
TEST_F(TransportTest, AClientSendsOneCommandAtATime) {
  for (const auto transmit :
       {ATSC_TransmitTVClientJSONCommand, ATSC_TransmitServiceClientJSONCommand}) {
    std::atomic<int> inside{0}, most{0};
    const auto enter = [&](const std::string&) {
      most = std::max<int>(most, ++inside);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      --inside;
    };
    fake::onSend(enter);
    fake::onCall(enter);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([transmit] { transmit(command("FW PLAY").c_str(), nullptr); });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(1, most);
  }
}

}  // namespace
