// The BUS between real processes over real sockets.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "aisrv.h"
#include "atsc_host.h"
#include "bus_lifetime.h"
#include "raw_peer.h"
#include "role.h"
#include "usage.h"
#include "wait.h"

namespace {

using bus::socketPath;
using Words = std::vector<std::string>;

enum Code : unsigned {
  kEcho = 1,  // the text, then its length
  kBlock,     // sends 'B' to the test, waits for a byte, replies 7
  kDie,       // sends 'D' to the test and is killed
  kQuit,      // makes main() return, then like kBlock
  kLarge,     // a text of the requested size
  kNothing,   // an empty reply
};

class Server : public BUSServerInterface {
 public:
  using Body = std::function<void(unsigned code, BUSParam& data, BUSParam* reply)>;

  Server(const std::string& name, Body body)
      : BUSServerInterface(name.c_str(), "test"), body_(std::move(body)) {}
  ~Server() override { BUS_server_ends(this); }
  int onTransact(unsigned int code, BUSParam& data, BUSParam* reply, unsigned int) override {
    body_(code, data, reply);
    return 0;
  }

 private:
  const Body body_;
};

std::promise<void> quit;

void answer(unsigned code, BUSParam& data, BUSParam* reply) {
  const char* const text = data.readCString();
  const int32_t number = data.readInt32();
  switch (code) {
    case kEcho:
      if (reply == nullptr) break;
      reply->writeCString(text);
      reply->writeInt32(text != nullptr ? static_cast<int32_t>(std::strlen(text)) : -1);
      break;
    case kQuit:
      quit.set_value();
      [[fallthrough]];
    case kBlock:
      tell('B');
      listen();
      reply->writeInt32(7);
      break;
    case kDie:
      tell('D');
      ::raise(SIGKILL);
      break;
    case kLarge:
      reply->writeCString(std::string(static_cast<size_t>(number), 'x').c_str());
      break;
    default:
      break;
  }
}

// Returns a server that lives until the process ends, like those of a TV application.
Server& serve(const std::string& name, Server::Body body = answer) {
  auto* const server = new Server(name, std::move(body));
  BUS_server_complete(server);
  return *server;
}

class Caller : public BUSClientInterface {
 public:
  explicit Caller(const std::string& name) : BUSClientInterface(name.c_str(), "caller") {}

  // Returns the echoed text; when the call fails, "-" and any text of the reply.
  std::string echo(const std::string& text) {
    BUSParam data, reply;
    data.writeCString(text.c_str());
    const int result = transact(kEcho, data, &reply, 0);
    const char* const echoed = reply.readCString();
    const std::string answer = echoed != nullptr ? echoed : "";
    const bool whole = reply.readInt32() == static_cast<int32_t>(text.size());
    return result == 0 && whole ? answer : "-" + answer;
  }

  // Returns the number of the reply; when the call fails, -1 minus any number.
  int32_t call(Code code) {
    BUSParam data, reply;
    const int result = transact(code, data, &reply, 0);
    return result == 0 ? reply.readInt32() : -1 - reply.readInt32();
  }
};

// A helper process that is ready.
struct Started : Helper {
  explicit Started(const Words& role) : Helper(role) { EXPECT_EQ(hear(), 'R'); }
};

// Removes the socket files that killed helpers have left.
struct Leftovers {
  ~Leftovers() {
    const std::string ours = ".BUS.test." + std::to_string(::getpid()) + ".";
    std::error_code ignored;
    for (const auto& file : std::filesystem::directory_iterator("/tmp", ignored))
      if (file.path().filename().string().rfind(ours, 0) == 0) remove(file.path(), ignored);
  }
};

std::string uniqueName(const char* what) {
  static const Leftovers leftovers;
  static int count = 0;
  return "test." + std::to_string(::getpid()) + "." + what + std::to_string(++count);
}

struct stat fileOf(const std::string& name) {
  struct stat status {};
  ::lstat(socketPath(name).c_str(), &status);
  return status;
}
bool exists(const std::string& name) { return fileOf(name).st_mode != 0; }

std::string request(const std::string& items, unsigned code = kEcho) {
  return "BUSq" + word(static_cast<uint32_t>(items.size())) + word(code) + word(0) + items;
}

TEST(Parcel, IsReadByType) {
  BUSParam parcel;
  EXPECT_EQ(parcel.readCString(), nullptr);
  EXPECT_EQ(parcel.writeCString(nullptr), -1);
  parcel.writeInt32(-5);
  parcel.writeCString("");
  parcel.writeCString("two");
  parcel.writeCString("skipped");
  parcel.writeInt32(INT32_MIN);
  EXPECT_EQ(parcel.readCString(), nullptr) << "null consumes nothing";
  EXPECT_EQ(parcel.readInt32(), -5);
  EXPECT_STREQ(parcel.readCString(), "");
  const char* const two = parcel.readCString();
  EXPECT_EQ(parcel.readInt32(), INT32_MIN) << "an unread text is skipped";
  for (int i = 0; i < 1000; ++i) parcel.writeInt32(i);
  EXPECT_STREQ(two, "two") << "a text lives as long as its parcel";
  EXPECT_EQ(parcel.writeCString(std::string(16 << 20, 'x').c_str()), -1);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(parcel.readInt32(), i);
  EXPECT_EQ(parcel.readInt32(), 0) << "nothing of it was written";
}

TEST(Bus, CarriesParcelsBothWays) {
  const std::string name = uniqueName("carry");
  Started server({"server", name});
  EXPECT_EQ(fileOf(name).st_mode, static_cast<mode_t>(S_IFSOCK | 0600));
  EXPECT_EQ(ATSC_host_find(name.c_str()), server.pid());
  Caller caller(name);
  // Sizes around the buffers of client and server, and the maximum.
  for (const size_t size : {0, 5, 4060, 70000, (16 << 20) - 128}) {
    const std::string text(size, 'y');
    EXPECT_TRUE(caller.echo(text) == text) << size;
    EXPECT_EQ(ATSC_host_last_transact(), 0);
  }
  RawPeer hasty(name);
  EXPECT_TRUE(hasty.send(request("") + request("")));
  hasty.finish();
  const std::string none = "BUSr" + word(5) + word(kEcho) + word(0) + "i" + word(UINT32_MAX);
  EXPECT_EQ(hasty.receive(), none + none);

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
  EXPECT_EQ(caller.call(kDie), -1);
  EXPECT_EQ(first.wait(), -SIGKILL);
  EXPECT_EQ(first.out(), "RD");

  // Sending on the connection to the dead process fails, so the request runs on a new connection.
  Started second({"server", name});
  EXPECT_EQ(caller.call(kDie), -1);
  second.wait();
  EXPECT_EQ(second.out(), "RD");
  EXPECT_EQ(caller.echo("x"), "-");
  EXPECT_EQ(ATSC_host_find(name.c_str()), 0);
}

// Well-behaved processes get answers while others violate the protocol, and nothing is left over.
TEST(Bus, OthersAreServedWhateverAPeerDoes) {
  const std::string name = uniqueName("faults");
  constexpr int kDescriptors = 120;
  Started server({"server", name, std::to_string(kDescriptors)});
  Caller caller(name);
  EXPECT_EQ(caller.echo("first"), "first");
  const long descriptors = usageOf(server.pid()).descriptors;

  const auto connections = [&](int count, const std::string& bytes) {
    std::vector<RawPeer> peers;
    for (int i = 0; i < count; ++i) {
      peers.emplace_back(name);
      for (size_t at = 0; at < bytes.size(); at += 65536) {
        if (!peers.back().send(bytes.substr(at, 65536))) break;
      }
    }
    return peers;
  };
  const std::string half = "BUSq" + word(8 << 20) + word(kEcho) + word(0);
  std::string large;
  for (int i = 0; i < 100; ++i) large += request("i" + word(8 << 20), kLarge);
  const struct {
    const char* what;
    int count;
    std::string bytes;
  } kFaults[] = {
      {"garbage", 200, std::string(64, 'G')},
      {"silent connections", 100, ""},
      {"half headers", 1000, half.substr(0, 9)},
      {"half of large frames", 200, half + std::string(1 << 20, 'h')},
      {"requests whose replies are not read", 3, large},
  };
  for (const auto& fault : kFaults) {
    SCOPED_TRACE(fault.what);
    {
      const auto peers = connections(fault.count, fault.bytes);
      std::vector<std::future<void>> threads;
      for (const char* const text : {"one", "other", "third"}) {
        threads.push_back(std::async(std::launch::async, [&caller, text] {
          for (int i = 0; i < 100; ++i) EXPECT_EQ(caller.echo(text), text);
        }));
      }
      EXPECT_EQ(Helper({"echo", name}).hearLine(), "hello") << "a new process";
    }
    for (int i = 0; i < 100000 && usageOf(server.pid()).descriptors > descriptors; ++i)
      ASSERT_EQ(caller.echo("hello"), "hello");
    EXPECT_EQ(usageOf(server.pid()).descriptors, descriptors);
  }
  const auto most = connections(100, "");
  EXPECT_EQ(Caller(name).echo(std::string(1 << 20, 'x')), "-") << "this process has enough";
  EXPECT_TRUE(server.says("is refused"));
  EXPECT_EQ(server.count("Too many open files"), 0u) << "others need some";
  EXPECT_LT(server.count("\n"), 50u) << "a line for a kind of fault";
}

TEST(Bus, AServerEndsAfterItsRunningTransaction) {
  const std::string name = uniqueName("stop");
  std::promise<void> entered, leave;
  Server gate(name, [&](unsigned, BUSParam&, BUSParam* reply) {
    entered.set_value();
    leave.get_future().wait();
    reply->writeInt32(5);
  });
  Caller caller(name);
  EXPECT_EQ(caller.call(kNothing), -1) << "nothing is served before it is complete";
  EXPECT_FALSE(exists(name));
  BUS_server_complete(&gate);
  EXPECT_EQ(ATSC_host_find(name.c_str()), ::getpid());
  RawPeer idle(name);

  auto call = std::async(std::launch::async, [&] { return caller.call(kNothing); });
  entered.get_future().wait();
  auto stopped = std::async(std::launch::async, [&] { BUS_server_ends(&gate); });
  EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  leave.set_value();
  stopped.get();
  EXPECT_EQ(call.get(), 5) << "the running transaction is answered";
  EXPECT_TRUE(eventually([&] { return !idle.send("x"); }, std::chrono::seconds(5)))
      << "connections end";
  BUSParam none;
  EXPECT_EQ(caller.transact(kNothing, none, nullptr, 0), -1);
  EXPECT_FALSE(exists(name));
}

TEST(Claim, IsWonByOneProcess) {
  for (int round = 0; round < 3; ++round) {
    const std::string name = uniqueName("race");
    std::vector<std::unique_ptr<Helper>> racers;
    for (int i = 0; i < 4; ++i) racers.push_back(std::make_unique<Helper>(Words{"server", name}));
    for (auto& racer : racers) EXPECT_EQ(racer->hear(), 'R');
    const std::string winner = std::to_string(ATSC_host_find(name.c_str()));
    size_t losers = 0;
    for (auto& racer : racers) losers += racer->count("process " + winner + " serves");
    EXPECT_EQ(losers, 3u) << "against " << winner;
  }
}

TEST(Claim, TheServiceIsDormantUntilItIsServed) {
  const std::string name = ATSC_HOST_SERVICE_NAME;
  if (ATSC_host_find(name.c_str()) != 0) GTEST_SKIP() << "a service runs here";
  Started service({"service"});
  EXPECT_FALSE(exists(name));
  EXPECT_EQ(ATSC_host_find(name.c_str()), 0);
  service.say('c');
  ASSERT_EQ(service.hear(), 'C');
  EXPECT_TRUE(exists(name));
  EXPECT_EQ(ATSC_host_find(name.c_str()), service.pid());
  EXPECT_EQ(ATSC_host_claim(name.c_str()), service.pid());

  Caller caller(name);
  RawPeer early(name);
  ASSERT_TRUE(early.send(request("")));
  auto waiting = std::async(std::launch::async, [&] { return caller.echo("early"); });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  service.say('s');
  EXPECT_EQ(waiting.get(), "early");
  EXPECT_EQ(service.wait(), 0);
  EXPECT_FALSE(exists(name));

  Helper forgetful({"service", "forgetful"});
  EXPECT_EQ(forgetful.wait(), 0);
  constexpr const char* kAdvice = "call ATSC_host_claim() first";
  EXPECT_EQ(service.count(kAdvice), 0u);
  EXPECT_EQ(forgetful.count(kAdvice), 1u) << "once a process";
}

TEST(Files, PlantedOnesAreNotFollowedAndThoseOfTheDeadAreSwept) {
  const std::string target = uniqueName("target");
  Started victim({"server", target});
  const std::string dead = uniqueName("dead");
  // Processes of other tests sweep too.
  do {
    Started first({"server", dead});
  } while (!exists(dead));
  EXPECT_EQ(Helper({"echo", target}).hearLine(), "hello");
  EXPECT_FALSE(exists(dead));
  const struct {
    const char* what;
    std::function<int(const char* path)> plant;
  } kPlants[] = {
      {"symbolic link", [&](auto path) { return ::symlink(socketPath(target).c_str(), path); }},
      {"symbolic link", [](auto path) { return ::symlink("/tmp/none", path); }},
      {"FIFO", [](auto path) { return ::mkfifo(path, 0666); }},
      {"folder", [](auto path) { return ::mkdir(path, 0700); }},
      {"file", [](auto path) { return ::mknod(path, S_IFREG | 0600, 0); }},
  };
  for (const auto& each : kPlants) {
    SCOPED_TRACE(each.what);
    const std::string name = uniqueName("planted");
    const std::string path = socketPath(name);
    ASSERT_EQ(each.plant(path.c_str()), 0);
    const std::string complaint = path + " is not a socket of this user: a " + each.what +
                                  " of user " + std::to_string(::geteuid());
    Helper client({"echo", name});
    EXPECT_EQ(client.hearLine(), "-");
    EXPECT_TRUE(client.says(complaint));
    EXPECT_TRUE(Started({"server", name}).says(complaint));
    EXPECT_EQ(ATSC_host_claim(name.c_str()), -1);
    EXPECT_EQ(::remove(path.c_str()), 0);
  }
  EXPECT_EQ(Caller(target).echo("x"), "x");
  EXPECT_NE(::access("/tmp/none", F_OK), 0);

  if (::geteuid() != 0) return;
  do {
    Started again({"server", dead});
  } while (::lchown(socketPath(dead).c_str(), 65534, 65534) != 0);
  EXPECT_EQ(Caller(dead).echo("x"), "-") << "a client does not trust it";
  EXPECT_EQ(ATSC_host_claim(dead.c_str()), 0) << "root removes what a dead process has left";
}

TEST(Users, DoNotReachEachOther) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  const std::string name = uniqueName("users");
  const std::string theirs = name + ".stranger";
  Started server({"server", name});
  // Also when the mode of the file allows access to other users.
  ASSERT_EQ(::chmod(socketPath(name).c_str(), 0666), 0);
  Helper stranger({"stranger", name, theirs});
  EXPECT_EQ(stranger.hear(), 'E') << "a raw connection is ended without a reply";
  EXPECT_EQ(stranger.hear(), 'R') << "serves a name of its own";
  ASSERT_TRUE(exists(theirs));
  EXPECT_EQ(ATSC_host_claim(theirs.c_str()), -1) << "it lives";
  EXPECT_EQ(Caller(theirs).echo("x"), "-");
  EXPECT_EQ(ATSC_host_find(theirs.c_str()), 0);
  EXPECT_TRUE(server.says("process " + std::to_string(stranger.pid()) +
                          " of another user (65534) was refused"));
  stranger.kill();
  ::unlink(socketPath(theirs).c_str());  // a file of another user is not swept
}

TEST(Exit, WaitsForARunningTransactionButNotForAReply) {
  const std::string name = uniqueName("exit");
  Started server({"server", name});
  Started relay({"relay", name + ".relay", name});
  Caller first(name + ".relay"), second(name);
  auto relayed = std::async(std::launch::async, [&] { return first.call(kNothing); });
  ASSERT_EQ(relay.hear(), 'T');
  ASSERT_EQ(server.hear(), 'B');
  relay.say('g');
  EXPECT_EQ(relay.wait(), 6);
  EXPECT_EQ(relayed.get(), 0);

  server.say('g');
  auto last = std::async(std::launch::async, [&] { return second.call(kQuit); });
  ASSERT_EQ(server.hear(), 'B');
  server.say('g');
  EXPECT_EQ(last.get(), 7);
  EXPECT_EQ(server.wait(), 3);
  EXPECT_FALSE(exists(name));
}

// Roles of the helper processes.

int serverRole(const Words& words) {
  if (words.size() > 1) {
    const rlimit limit{std::stoul(words[1]), std::stoul(words[1])};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
  }
  serve(words.at(0));
  tell('R');
  quit.get_future().wait();
  return 3;
}

// Calls the middleware like the start of the databases; the answer is not used.
void startUp() { AISRV_get_total_services(AI_INPUT_CABLE, 0, nullptr, 0, nullptr); }

// With a further word it does not claim the service's name, so that commands would not be answered.
int serviceRole(const Words& words) {
  if (!words.empty()) {
    startUp();
    startUp();
    return 0;
  }
  serve(ATSC_HOST_SERVICE_NAME);
  tell('R');
  listen();
  if (ATSC_host_claim(ATSC_HOST_SERVICE_NAME) != 0) return 1;
  tell('C');
  listen();
  startUp();
  ATSC_host_serve(ATSC_HOST_SERVICE_NAME);
  return Caller(ATSC_HOST_SERVICE_NAME).echo("self") == "self" ? 0 : 1;
}

int echoRole(const Words& words) {
  std::printf("%s\n", Caller(words.at(0)).echo("hello").c_str());
  return 0;
}

// Calls the server words[1] in its own transaction.
int relayRole(const Words& words) {
  serve(words.at(0), [caller = std::make_shared<Caller>(words.at(1))](auto&&...) {
    tell('T');
    caller->call(kEcho);
    caller->call(kBlock);
  });
  tell('R');
  listen();
  return 6;
}

int strangerRole(const Words& words) {
  if (::setgid(65534) != 0 || ::setuid(65534) != 0) return 1;
  RawPeer peer(words.at(0));
  if (!peer.connected()) return 1;
  peer.send(request(""));
  if (peer.receive().empty()) tell('E');
  serve(words.at(1));
  ::chmod(socketPath(words.at(1)).c_str(), 0666);
  tell('R');
  listen();
  return 0;
}

const AddRoles kAddRoles({
    {"server", serverRole},
    {"service", serviceRole},
    {"echo", echoRole},
    {"relay", relayRole},
    {"stranger", strangerRole},
});

}  // namespace
