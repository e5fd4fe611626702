// The BUS between real processes over real sockets.

#include "bus.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "atsc_host.h"
#include "bus_peers.h"
#include "process.h"

namespace {

using namespace bus_peers;

// A helper process that has got ready.
struct Started : Process {
  explicit Started(const std::vector<std::string>& role, bool keep_errors = false)
      : Process(role, keep_errors) {
    EXPECT_EQ(hear(), 'R');
  }
};

TEST(Parcel, IsReadByType) {
  BUSParam parcel;
  EXPECT_EQ(parcel.readCString(), nullptr);
  EXPECT_EQ(parcel.readInt32(), 0);
  EXPECT_EQ(parcel.writeCString(nullptr), -1);
  parcel.writeInt32(-5);
  parcel.writeCString("");
  parcel.writeCString("two");
  parcel.writeCString("skipped");
  parcel.writeInt32(INT32_MIN);
  EXPECT_EQ(parcel.readCString(), nullptr);
  EXPECT_EQ(parcel.readCString(), nullptr) << "null consumes nothing";
  EXPECT_EQ(parcel.readInt32(), -5);
  EXPECT_STREQ(parcel.readCString(), "");
  const char* const two = parcel.readCString();
  EXPECT_EQ(parcel.readInt32(), INT32_MIN) << "an unread text is skipped";
  for (int i = 0; i < 1000; ++i) parcel.writeInt32(i);
  EXPECT_STREQ(two, "two") << "a text lives as long as its parcel";
  EXPECT_EQ(parcel.readInt32(), 0);
  EXPECT_EQ(parcel.writeCString(std::string(16 << 20, 'x').c_str()), -1);
  EXPECT_EQ(parcel.readInt32(), 1) << "nothing of it was written";
}

TEST(Bus, AClientRefusesAMalformedReply) {
  const std::string text = std::string("s") + word(3) + std::string("ab\0", 3);
  const std::string head = "BUSr" + word(8) + word(kEcho) + word(0);
  for (const std::string& bytes :
       {std::string(16, 'G'), "BUSr" + word(0xFFFFFFFF) + word(kEcho) + word(0),
        "BUSr" + word(8) + word(kEcho + 1) + word(0) + text, head + "s" + word(3) + "abc",
        head + text + "more", head + "cut"}) {
    const std::string name = uniqueName("liar");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string hidden = "/tmp/" + name;  // not to be swept before it listens
    hidden.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    ASSERT_EQ(::rename(hidden.c_str(), pathOf(name).c_str()), 0);
    std::thread liar([&] {
      char data[64];
      for (bool asked = false; !asked;) {
        // Other processes may look whether somebody listens; they send nothing.
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        asked = ::recv(fd, data, sizeof data, 0) > 0;
        if (asked) ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        ::close(fd);
      }
    });
    EXPECT_EQ(Caller(name).echo("x"), "-");
    liar.join();
    ::close(listener);
    ::unlink(pathOf(name).c_str());
  }
}

TEST(Bus, CarriesParcelsBothWays) {
  const std::string name = uniqueName("carry");
  Started server({"server", name});
  struct stat status;
  ASSERT_EQ(::lstat(pathOf(name).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFSOCK | 0600));
  EXPECT_EQ(ATSC_host_find(name.c_str()), server.pid());

  Caller caller(name);
  EXPECT_EQ(caller.echo("hello"), "hello");
  EXPECT_EQ(ATSC_host_last_transact(), 0);
  EXPECT_EQ(caller.echo(""), "");
  // Sizes around the buffers of both ends, and the largest.
  for (const size_t size : {4060, 70000, (16 << 20) - 128}) {
    const std::string text(size, 'y');
    EXPECT_TRUE(caller.echo(text) == text) << size;
  }
  BUSParam data, reply;
  data.writeCString("no reply wanted");
  EXPECT_EQ(caller.transact(kEcho, data, nullptr, 0), 0);
  for (int i = 0; i < (16 << 20) / 5; ++i) data.writeInt32(i);
  reply.writeInt32(9);
  EXPECT_EQ(caller.transact(kEcho, data, &reply, 0), -1) << "too large";
  EXPECT_EQ(reply.readInt32(), 0);
  EXPECT_EQ(ATSC_host_last_transact(), -1);
  EXPECT_EQ(ATSC_host_claim("../x"), -1);
  EXPECT_EQ(ATSC_host_claim(std::string(200, 'n').c_str()), -1);
}

TEST(Bus, RunsARequestAtMostOnce) {
  const std::string name = uniqueName("once");
  Started first({"server", name});
  Caller caller(name);
  EXPECT_EQ(caller.echo("x"), "x");
  int32_t number = 1;
  EXPECT_EQ(caller.call(kDie, &number), -1);
  EXPECT_EQ(number, 0);
  EXPECT_EQ(first.wait(), -SIGKILL);
  EXPECT_EQ(first.hear(), 'D');
  EXPECT_EQ(first.hear(), 0);

  // The connection to the dead process fails before the request is out: it runs on the new one.
  Started second({"server", name});
  EXPECT_EQ(caller.call(kDie), -1);
  EXPECT_EQ(second.hear(), 'D');
  EXPECT_EQ(second.hear(), 0);
  EXPECT_EQ(caller.echo("x"), "-");
  EXPECT_EQ(ATSC_host_find(name.c_str()), 0);
}

TEST(Bus, EndsMalformedConnectionsOnly) {
  const std::string name = uniqueName("malformed");
  Started server({"server", name}, true);
  Caller caller(name);
  RawPeer half(pathOf(name));
  ASSERT_TRUE(half.send(request("s" + word(100) + std::string(99, 'h') + '\0').substr(0, 80)));

  const struct {
    const char* what;
    std::string bytes;
  } kCases[] = {
      {"garbage", std::string(64, 'G')},
      {"a reply", "BUSr" + word(0) + word(0) + word(0)},
      {"announces 4 GiB", "BUSq" + word(0xFFFFFFFF) + word(1) + word(0)},
      {"unknown item", request("x1234")},
      {"integer cut short", request("i12")},
      {"text of size 0", request("s" + word(0))},
      {"text beyond the frame", request("s" + word(0xFFFFFFF0) + "abc")},
      {"text without NUL", request("s" + word(3) + "abc")},
      {"text with a second NUL", request("s" + word(4) + std::string("a\0b\0", 4))},
      {"second item bad", request("i1234?")},
  };
  for (const auto& each : kCases) {
    RawPeer peer(pathOf(name));
    ASSERT_TRUE(peer.send(each.bytes)) << each.what;
    EXPECT_EQ(peer.receiveAll(), "") << each.what;
    EXPECT_EQ(caller.echo("still there"), "still there") << each.what;
  }
  RawPeer cut(pathOf(name));
  cut.send("BUSq" + word(50));
  cut.finish();
  EXPECT_EQ(cut.receiveAll(), "");
  half.finish();
  EXPECT_EQ(half.receiveAll(), "");

  // Two requests at once, the second one in pieces: both are answered, in order.
  RawPeer good(pathOf(name));
  const std::string text = std::string("s") + word(3) + std::string("ab\0", 3);
  const std::string answer = "BUSr" + word(13) + word(kEcho) + word(0) + text + "i" + word(2);
  good.send(request(text) + request(text).substr(0, 20));
  EXPECT_EQ(caller.echo("x"), "x");
  good.send(request(text).substr(20));
  good.finish();
  EXPECT_EQ(good.receiveAll(), answer + answer);

  server.kill();
  const std::string errors = server.errors();
  for (const char* const reason : {"no request", "too large", "bad item", "middle of a frame"}) {
    EXPECT_NE(errors.find(reason), std::string::npos) << reason;
  }
}

TEST(Bus, ServesOthersWhileAPeerDoesNotRead) {
  const std::string name = uniqueName("greedy");
  Started server({"server", name});
  RawPeer greedy(pathOf(name));
  const std::string large = request("i" + word(8 << 20), kLarge);
  for (int i = 0; i < 1000; ++i) greedy.send(large, MSG_DONTWAIT);
  std::vector<std::unique_ptr<RawPeer>> idle;
  for (int i = 0; i < 400; ++i) idle.push_back(std::make_unique<RawPeer>(pathOf(name)));
  // This process has used up its connections; another one has not.
  Process other({"echo", name});
  EXPECT_EQ(other.hearLine(), "hello");
}

TEST(Bus, ServesAHundredConnectionsFromManyThreads) {
  const std::string name = uniqueName("hundred");
  Started server({"server", name});
  std::vector<std::unique_ptr<Caller>> callers;
  for (int i = 0; i < 100; ++i) callers.push_back(std::make_unique<Caller>(name));
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (size_t i = 0; i < 200; ++i) {
        const std::string text = std::to_string(thread) + "/" + std::to_string(i);
        good += callers[i % 100]->echo(text) == text;  // callers are shared by the threads
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, 800);
}

TEST(Bus, StopWaitsForTheRunningTransaction) {
  class Gate : public BUSServerInterface {
   public:
    explicit Gate(const std::string& name) : BUSServerInterface(name.c_str(), "gate") {}
    ~Gate() override { stop(); }
    void open() { start(); }
    void close() { stop(); }
    int onTransact(unsigned int, BUSParam&, BUSParam* reply, unsigned int) override {
      entered.set_value();
      leave.get_future().wait();
      reply->writeInt32(5);
      done = true;
      return 0;
    }
    std::promise<void> entered, leave;
    std::atomic<bool> done{false};
  };
  const std::string name = uniqueName("stop");
  Gate gate(name);
  Caller caller(name);
  EXPECT_EQ(caller.call(kNothing), -1) << "nothing is served before start()";
  EXPECT_FALSE(exists(pathOf(name)));
  gate.open();
  EXPECT_EQ(ATSC_host_find(name.c_str()), ::getpid());

  int32_t number = 0;
  auto call = std::async(std::launch::async, [&] { return caller.call(kNothing, &number); });
  gate.entered.get_future().wait();
  auto stopped = std::async(std::launch::async, [&] {
    gate.close();
    return gate.done.load();
  });
  EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  gate.leave.set_value();
  EXPECT_TRUE(stopped.get()) << "none is running when stop() returns";
  EXPECT_EQ(call.get(), 0) << "the running transaction is answered";
  EXPECT_EQ(number, 5);
  EXPECT_EQ(caller.call(kNothing), -1);
  EXPECT_FALSE(exists(pathOf(name)));
}

TEST(Bus, ANameHasOneServer) {
  const std::string name = uniqueName("one");
  Echo first(name);
  Started other({"server", name}, true);
  other.kill();
  EXPECT_NE(other.errors().find("process " + std::to_string(::getpid()) + " serves"),
            std::string::npos);
  EXPECT_EQ(Caller(name).echo("first"), "first");
}

TEST(Claim, IsWonByOneProcess) {
  for (int round = 0; round < 3; ++round) {
    const std::string name = uniqueName("race");
    std::vector<std::unique_ptr<Process>> racers;
    for (int i = 0; i < 4; ++i) {
      racers.push_back(std::make_unique<Process>(std::vector<std::string>{"claim", name}));
    }
    for (auto& racer : racers) EXPECT_EQ(racer->hear(), 'R');
    for (auto& racer : racers) racer->say('g');
    std::vector<std::string> results;
    std::string winner;
    for (auto& racer : racers) {
      results.push_back(racer->hearLine());
      if (results.back() == "0") winner = std::to_string(racer->pid());
    }
    EXPECT_EQ(std::count(results.begin(), results.end(), "0"), 1);
    EXPECT_EQ(std::count(results.begin(), results.end(), winner), 3);
    for (auto& racer : racers) {
      racer->say('g');
      EXPECT_EQ(racer->wait(), 0);
    }
    EXPECT_FALSE(exists(pathOf(name))) << "removed at exit";
  }
}

TEST(Claim, TheServiceIsDormantUntilItIsServed) {
  if (ATSC_host_find(ATSC_HOST_SERVICE_NAME) != 0) GTEST_SKIP() << "a service runs here";
  Started service({"service"});
  EXPECT_FALSE(exists(pathOf(ATSC_HOST_SERVICE_NAME)));
  EXPECT_EQ(ATSC_host_find(ATSC_HOST_SERVICE_NAME), 0);
  service.say('c');
  ASSERT_EQ(service.hear(), 'C');
  EXPECT_TRUE(exists(pathOf(ATSC_HOST_SERVICE_NAME)));
  EXPECT_EQ(ATSC_host_find(ATSC_HOST_SERVICE_NAME), service.pid());
  EXPECT_EQ(ATSC_host_claim(ATSC_HOST_SERVICE_NAME), service.pid());

  Caller caller(ATSC_HOST_SERVICE_NAME);
  RawPeer early(pathOf(ATSC_HOST_SERVICE_NAME));
  ASSERT_TRUE(early.send(request("")));
  auto waiting = std::async(std::launch::async, [&] { return caller.echo("early"); });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  service.say('s');
  EXPECT_EQ(waiting.get(), "early");
  EXPECT_EQ(service.wait(), 0);
  EXPECT_FALSE(exists(pathOf(ATSC_HOST_SERVICE_NAME)));
}

TEST(Files, OfTheDeadAreSweptOfTheLivingNot) {
  const std::string dead = uniqueName("dead");
  const std::string alive = uniqueName("alive");
  Started second({"server", alive});
  { Started first({"server", dead}); }
  Process sweeper({"echo", alive});
  EXPECT_EQ(sweeper.hearLine(), "hello");
  EXPECT_FALSE(exists(pathOf(dead)));
  EXPECT_TRUE(exists(pathOf(alive)));
}

TEST(Files, PlantedOnesAreNotFollowed) {
  const std::string target = uniqueName("target");
  Started victim({"server", target});
  const std::string name = uniqueName("planted");
  ASSERT_EQ(::symlink(pathOf(target).c_str(), pathOf(name).c_str()), 0);
  EXPECT_EQ(Caller(name).echo("x"), "-");
  EXPECT_EQ(ATSC_host_claim(name.c_str()), -1);
  Started server({"server", name}, true);
  server.kill();
  EXPECT_NE(server.errors().find("not a socket of this user"), std::string::npos);
  EXPECT_EQ(Caller(target).echo("x"), "x");
  EXPECT_TRUE(exists(pathOf(name)));
  ::unlink(pathOf(name).c_str());
}

TEST(Users, DoNotReachEachOther) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  const std::string name = uniqueName("users");
  Started server({"server", name}, true);
  // Even where the mode of the file would let the stranger in.
  ASSERT_EQ(::chmod(pathOf(name).c_str(), 0666), 0);
  Process stranger({"stranger", name});
  EXPECT_EQ(stranger.hear(), 'E') << "a raw connection is ended without a reply";
  EXPECT_EQ(stranger.hear(), 'R') << "serves a name of its own";
  EXPECT_EQ(Caller(name + ".stranger").echo("x"), "-");
  EXPECT_EQ(ATSC_host_find((name + ".stranger").c_str()), 0);
  server.kill();
  EXPECT_NE(server.errors().find("another user was refused"), std::string::npos);
  stranger.kill();
  ::unlink(pathOf(name + ".stranger").c_str());  // another user's: nobody sweeps it
}

TEST(Exit, WaitsForARunningTransactionAndRemovesTheFile) {
  const std::string name = uniqueName("exit");
  Started server({"server", name});
  Caller caller(name);
  int32_t number = 0;
  auto call = std::async(std::launch::async, [&] { return caller.call(kQuit, &number); });
  ASSERT_EQ(server.hear(), 'B');
  server.say('g');
  EXPECT_EQ(call.get(), 0);
  EXPECT_EQ(number, 7);
  EXPECT_EQ(server.wait(), 3);
  EXPECT_FALSE(exists(pathOf(name)));
}

TEST(Exit, DoesNotWaitForAReply) {
  const std::string name = uniqueName("waiter");
  Started server({"server", name});
  Started relay({"relay", name + ".relay", name});
  Caller caller(name + ".relay");
  auto call = std::async(std::launch::async, [&] { return caller.call(kNothing); });
  ASSERT_EQ(relay.hear(), 'T');
  ASSERT_EQ(server.hear(), 'B');
  relay.say('g');
  EXPECT_EQ(relay.wait(), 6);
  EXPECT_EQ(call.get(), 0);
}

// What the helper processes do.

int serverRole(const std::vector<std::string>& words) {
  const std::string& name = words.at(0);
  new Echo(name);  // lives until the process ends, as the servers of a TV application do
  tell('R');
  quit.get_future().wait();
  return 3;
}

int claimRole(const std::vector<std::string>& words) {
  const std::string& name = words.at(0);
  tell('R');
  listen();
  std::printf("%d\n", ATSC_host_claim(name.c_str()));
  std::fflush(stdout);
  listen();
  return 0;
}

int serviceRole(const std::vector<std::string>&) {
  static Echo service(ATSC_HOST_SERVICE_NAME);
  tell('R');
  listen();
  if (ATSC_host_claim(ATSC_HOST_SERVICE_NAME) != 0) return 1;
  tell('C');
  listen();
  ATSC_host_serve(ATSC_HOST_SERVICE_NAME);
  return Caller(ATSC_HOST_SERVICE_NAME).echo("self") == "self" ? 0 : 1;
}

int echoRole(const std::vector<std::string>& words) {
  const std::string& name = words.at(0);
  std::printf("%s\n", Caller(name).echo("hello").c_str());
  return 0;
}

int relayRole(const std::vector<std::string>& words) {
  class Relay : public BUSServerInterface {
   public:
    Relay(const std::string& name, const std::string& target)
        : BUSServerInterface(name.c_str(), ""), caller_(target) {
      start();
    }
    ~Relay() override { stop(); }
    int onTransact(unsigned int, BUSParam&, BUSParam*, unsigned int) override {
      tell('T');
      caller_.call(kEcho);
      return caller_.call(kBlock);
    }

   private:
    Caller caller_;
  };
  new Relay(words.at(0), words.at(1));  // lives until the process ends
  tell('R');
  listen();
  return 6;
}

int strangerRole(const std::vector<std::string>& words) {
  const std::string& name = words.at(0);
  if (::setgid(65534) != 0 || ::setuid(65534) != 0) return 1;
  RawPeer peer(pathOf(name));
  if (!peer.connected()) return 1;
  peer.send(request(""));
  if (peer.receiveAll().empty()) tell('E');
  const Echo own(name + ".stranger");
  ::chmod(pathOf(name + ".stranger").c_str(), 0666);
  tell('R');
  listen();
  return 0;
}

const AddRoles add_roles({
    {"server", serverRole},
    {"claim", claimRole},
    {"service", serviceRole},
    {"echo", echoRole},
    {"relay", relayRole},
    {"stranger", strangerRole},
});

}  // namespace
