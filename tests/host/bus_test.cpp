// The BUS between real processes over real sockets.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "aisrv.h"
#include "atsc_host.h"
#include "bus_peers.h"
#include "role.h"
#include "usage.h"

namespace {

using namespace bus_peers;

// A helper process that is ready.
struct Started : Helper {
  explicit Started(const std::vector<std::string>& role) : Helper(role) { EXPECT_EQ(hear(), 'R'); }
};

constexpr int kRounds = 200;

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
  // Sizes around the buffers of client and server, and the maximum.
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

  // Sending on the connection to the dead process fails, so the request runs on a new connection.
  Started second({"server", name});
  EXPECT_EQ(caller.call(kDie), -1);
  EXPECT_EQ(second.hear(), 'D');
  EXPECT_EQ(second.hear(), 0);
  EXPECT_EQ(caller.echo("x"), "-");
  EXPECT_EQ(ATSC_host_find(name.c_str()), 0);
}

// A well-behaved process gets answers while others violate the protocol, and nothing is left over.
TEST(Neighbour, OthersAreServedWhateverAPeerDoes) {
  const std::string name = uniqueName("faults");
  constexpr int kDescriptors = 120;
  Started server({"server", name, std::to_string(kDescriptors)});
  Started healthy({"healthy", name});
  const auto answered = [&](const char* during) {
    healthy.say('g');
    std::istringstream line(healthy.hearLine());
    int good = 0;
    int median = 0;
    int worst = 0;
    line >> good >> median >> worst;
    EXPECT_EQ(good, kRounds) << during;
    if (longForm()) std::printf("%-40s median %5d us, worst %6d us\n", during, median, worst);
  };
  answered("nothing else");
  const long descriptors = usageOf(server.pid()).descriptors;

  using Peers = std::vector<std::shared_ptr<void>>;
  const auto connections = [&](int count, const std::string& bytes) {
    Peers peers;
    for (int i = 0; i < count; ++i) {
      auto peer = std::make_shared<RawPeer>(pathOf(name));
      for (size_t at = 0; at < bytes.size(); at += 65536) {
        if (!peer->send(bytes.substr(at, 65536), MSG_DONTWAIT)) break;
      }
      peers.push_back(peer);
    }
    return peers;
  };
  const auto deaths = [&](const char* where) {
    for (int i = 0; i < 20; ++i) {
      Helper victim({"dies", name, where});
      EXPECT_EQ(victim.wait(), -SIGKILL);
    }
    return Peers();
  };
  const std::string half = "BUSq" + word(8 << 20) + word(kEcho) + word(0);
  const std::string large = request("i" + word(8 << 20), kLarge);
  const struct {
    const char* what;
    std::function<Peers()> begin;
  } kFaults[] = {
      {"dies in the middle of a request", [&] { return deaths("request"); }},
      {"dies in the middle of a reply", [&] { return deaths("reply"); }},
      {"garbage", [&] { return connections(200, std::string(64, 'G')); }},
      {"connects a hundred times and is silent", [&] { return connections(100, ""); }},
      {"reconnects in a loop", [&] { return connections(1000, ""), Peers(); }},
      {"a thousand half headers", [&] { return connections(1000, half.substr(0, 9)); }},
      {"half of large frames", [&] { return connections(200, half + std::string(1 << 20, 'h')); }},
      {"asks and does not read",
       [&] {
         std::string many;
         for (int i = 0; i < 100; ++i) many += large;
         return connections(3, many);
       }},
  };
  for (const auto& fault : kFaults) {
    for (int round = 0; round < (longForm() ? 5 : 1); ++round) {
      const Peers peers = fault.begin();
      answered(fault.what);
    }
    for (int i = 0; i < 1000 && usageOf(server.pid()).descriptors > descriptors; ++i) {
      answered("the peers have gone");
    }
    EXPECT_EQ(usageOf(server.pid()).descriptors, descriptors) << fault.what;
  }
  server.kill();
  const std::string errors = server.err();
  EXPECT_NE(errors.find("is refused"), std::string::npos);
  EXPECT_EQ(errors.find("Too many open files"), std::string::npos) << "others need some";
  EXPECT_LT(std::count(errors.begin(), errors.end(), '\n'), 50) << "a line for a kind of fault";
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

TEST(Bus, AServerEndsAfterItsRunningTransaction) {
  class Gate : public BUSServerInterface {
   public:
    explicit Gate(const std::string& name) : BUSServerInterface(name.c_str(), "gate") {}
    ~Gate() override { BUS_server_ends(this); }
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
  EXPECT_EQ(caller.call(kNothing), -1) << "nothing is served before it is complete";
  EXPECT_FALSE(exists(pathOf(name)));
  BUS_server_complete(&gate);
  EXPECT_EQ(ATSC_host_find(name.c_str()), ::getpid());

  int32_t number = 0;
  auto call = std::async(std::launch::async, [&] { return caller.call(kNothing, &number); });
  gate.entered.get_future().wait();
  auto stopped = std::async(std::launch::async, [&] {
    BUS_server_ends(&gate);
    return gate.done.load();
  });
  EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  gate.leave.set_value();
  EXPECT_TRUE(stopped.get()) << "none is running when it ends";
  EXPECT_EQ(call.get(), 0) << "the running transaction is answered";
  EXPECT_EQ(number, 5);
  EXPECT_EQ(caller.call(kNothing), -1);
  EXPECT_FALSE(exists(pathOf(name)));
}

TEST(Bus, ANameHasOneServer) {
  const std::string name = uniqueName("one");
  Echo first(name);
  Started other({"server", name});
  other.kill();
  EXPECT_NE(other.err().find("process " + std::to_string(::getpid()) + " serves"),
            std::string::npos);
  EXPECT_EQ(Caller(name).echo("first"), "first");
}

TEST(Claim, IsWonByOneProcess) {
  for (int round = 0; round < 3; ++round) {
    const std::string name = uniqueName("race");
    std::vector<std::unique_ptr<Helper>> racers;
    for (int i = 0; i < 4; ++i) {
      racers.push_back(std::make_unique<Helper>(std::vector<std::string>{"claim", name}));
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

  const auto advice = [](Process& process) {
    const std::string log = process.err();
    const size_t first = log.find("call ATSC_host_claim() first");
    return (first != std::string::npos) + (first != log.rfind("call ATSC_host_claim() first"));
  };
  EXPECT_EQ(advice(service), 0);
  Helper forgetful({"forgetful"});
  EXPECT_EQ(forgetful.wait(), 0);
  EXPECT_EQ(advice(forgetful), 1) << "once a process";
}

TEST(Files, OfTheDeadAreSweptOfTheLivingNot) {
  const std::string dead = uniqueName("dead");
  const std::string alive = uniqueName("alive");
  Started second({"server", alive});
  { Started first({"server", dead}); }
  Helper sweeper({"echo", alive});
  EXPECT_EQ(sweeper.hearLine(), "hello");
  EXPECT_FALSE(exists(pathOf(dead)));
  EXPECT_TRUE(exists(pathOf(alive)));
}

TEST(Files, PlantedOnesAreNotFollowed) {
  const std::string target = uniqueName("target");
  Started victim({"server", target});
  const struct {
    const char* what;
    std::function<int(const std::string& path)> plant;
  } kPlants[] = {
      {"symbolic link of user",
       [&](auto& path) { return ::symlink(pathOf(target).c_str(), path.c_str()); }},
      {"symbolic link of user", [](auto& path) { return ::symlink("/tmp/none", path.c_str()); }},
      {"FIFO", [](auto& path) { return ::mkfifo(path.c_str(), 0666); }},
      {"folder", [](auto& path) { return ::mkdir(path.c_str(), 0700); }},
      {"file", [](auto& path) { return ::mknod(path.c_str(), S_IFREG | 0600, 0); }},
  };
  for (const auto& each : kPlants) {
    const std::string name = uniqueName("planted");
    ASSERT_EQ(each.plant(pathOf(name)), 0) << each.what;
    struct stat before, after;
    ASSERT_EQ(::lstat(pathOf(name).c_str(), &before), 0);
    EXPECT_EQ(Caller(name).echo("x"), "-") << each.what;
    EXPECT_EQ(ATSC_host_claim(name.c_str()), -1) << each.what;
    Started server({"server", name});
    server.kill();
    const std::string errors = server.err();
    for (const std::string& part :
         {pathOf(name), std::string("not a socket of this user"), std::string(each.what)}) {
      EXPECT_NE(errors.find(part), std::string::npos) << part << " in " << errors;
    }
    ASSERT_EQ(::lstat(pathOf(name).c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino) << each.what;
    ::remove(pathOf(name).c_str());
  }
  EXPECT_EQ(Caller(target).echo("x"), "x");
  EXPECT_FALSE(exists("/tmp/none"));

  if (::geteuid() != 0) return;
  const std::string stale = uniqueName("stale");
  ::close(bound(pathOf(stale)));
  ASSERT_EQ(::lchown(pathOf(stale).c_str(), 65534, 65534), 0);
  EXPECT_EQ(Caller(stale).echo("x"), "-") << "a client does not trust it";
  EXPECT_EQ(ATSC_host_claim(stale.c_str()), 0) << "root removes what a dead process has left";
}

TEST(Users, DoNotReachEachOther) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  const std::string name = uniqueName("users");
  Started server({"server", name});
  // Also when the mode of the file allows access to other users.
  ASSERT_EQ(::chmod(pathOf(name).c_str(), 0666), 0);
  Helper stranger({"stranger", name});
  EXPECT_EQ(stranger.hear(), 'E') << "a raw connection is ended without a reply";
  EXPECT_EQ(stranger.hear(), 'R') << "serves a name of its own";
  ASSERT_TRUE(exists(pathOf(name + ".stranger")));
  EXPECT_EQ(ATSC_host_claim((name + ".stranger").c_str()), -1) << "it lives";
  EXPECT_EQ(Caller(name + ".stranger").echo("x"), "-");
  EXPECT_EQ(ATSC_host_find((name + ".stranger").c_str()), 0);
  server.kill();
  EXPECT_NE(server.err().find("process " + std::to_string(stranger.pid()) +
                              " of another user (65534) was refused"),
            std::string::npos);
  stranger.kill();
  ::unlink(pathOf(name + ".stranger").c_str());  // a file of another user is not swept
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

// Roles of the helper processes.

int serverRole(const std::vector<std::string>& words) {
  const std::string& name = words.at(0);
  if (words.size() > 1) {
    const rlimit limit{std::stoul(words[1]), std::stoul(words[1])};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
  }
  new Echo(name);  // lives until the process ends, like the servers of a TV application
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

// Calls the middleware like the start of the databases; the answer is not used.
void startUp() { AISRV_get_total_services(AI_INPUT_CABLE, 0, nullptr, 0, nullptr); }

// Does not claim the service's name, so that commands would not be answered.
int forgetfulRole(const std::vector<std::string>&) {
  startUp();
  startUp();
  return 0;
}

int serviceRole(const std::vector<std::string>&) {
  static Echo service(ATSC_HOST_SERVICE_NAME);
  tell('R');
  listen();
  if (ATSC_host_claim(ATSC_HOST_SERVICE_NAME) != 0) return 1;
  tell('C');
  listen();
  startUp();
  ATSC_host_serve(ATSC_HOST_SERVICE_NAME);
  return Caller(ATSC_HOST_SERVICE_NAME).echo("self") == "self" ? 0 : 1;
}

int echoRole(const std::vector<std::string>& words) {
  const std::string& name = words.at(0);
  std::printf("%s\n", Caller(name).echo("hello").c_str());
  return 0;
}

// Prints how many of its calls were answered, and how long they took.
int healthyRole(const std::vector<std::string>& words) {
  Caller caller(words.at(0));
  tell('R');
  while (listen() != 0) {
    int good = 0;
    std::vector<int64_t> took;
    for (int i = 0; i < kRounds; ++i) {
      const auto start = std::chrono::steady_clock::now();
      good += caller.echo("hello") == "hello";
      const auto time = std::chrono::steady_clock::now() - start;
      took.push_back(std::chrono::duration_cast<std::chrono::microseconds>(time).count());
    }
    std::sort(took.begin(), took.end());
    std::printf("%d %d %d\n", good, static_cast<int>(took[kRounds / 2]),
                static_cast<int>(took.back()));
    std::fflush(stdout);
  }
  return 0;
}

// Is killed after half of a request, or after reading one byte of a large reply.
int diesRole(const std::vector<std::string>& words) {
  RawPeer peer(pathOf(words.at(0)));
  if (words.at(1) == "request") {
    peer.send(request("s" + word(100)).substr(0, 18));
  } else {
    peer.send(request("i" + word(8 << 20), kLarge));
    peer.receive(1);
  }
  return ::raise(SIGKILL);
}

int relayRole(const std::vector<std::string>& words) {
  class Relay : public BUSServerInterface {
   public:
    Relay(const std::string& name, const std::string& target)
        : BUSServerInterface(name.c_str(), ""), caller_(target) {
      BUS_server_complete(this);
    }
    ~Relay() override { BUS_server_ends(this); }
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

const AddRoles kAddRoles({
    {"server", serverRole},
    {"claim", claimRole},
    {"service", serviceRole},
    {"forgetful", forgetfulRole},
    {"echo", echoRole},
    {"healthy", healthyRole},
    {"dies", diesRole},
    {"relay", relayRole},
    {"stranger", strangerRole},
});

}  // namespace
