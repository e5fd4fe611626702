// Tests client and server of the BUS with a peer that violates the protocol. The first byte selects
// client or server; the rest are the actions of the peer.
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "bus/param.h"
#include "bus/socket.h"
#include "bus_lifetime.h"
#include "input.h"
#include "raw_peer.h"

namespace {

[[maybe_unused]] const bool kQuiet = setenv("SPDLOG_LEVEL", "off", 0) == 0;

constexpr uint32_t kMirror = 0x4D4D4D4D;  // a code that echoes; other codes are bit fields
constexpr uint32_t kThrow = 0x4D4D4D4E;
constexpr uint32_t kLarge = 0x4D4D4D4F;
constexpr size_t kLargeText = 600'000;  // more than a socket buffers

std::string nameOf(const char* what) { return "fuzz." + std::to_string(::getpid()) + "." + what; }

// Reads the items that the code requests, two bits each, and replies with them.
class Server : public BUSServerInterface {
 public:
  explicit Server(const std::string& name) : BUSServerInterface(name.c_str(), "fuzz") {
    BUS_server_complete(this);
  }
  ~Server() override { BUS_server_ends(this); }

  int onTransact(unsigned int code, BUSParam& data, BUSParam* reply, unsigned int) override {
    if (code == kThrow) throw std::runtime_error("asked for");
    if (code == kLarge && reply != nullptr)
      reply->writeCString(std::string(kLargeText, 'x').c_str());
    for (; code != 0; code >>= 2) {
      if ((code & 1) != 0) {
        const char* const text = data.readCString();
        if (text != nullptr && reply != nullptr) reply->writeCString(text);
      }
      if ((code & 2) != 0) {
        const int32_t number = data.readInt32();
        if (reply != nullptr) reply->writeInt32(number);
      }
    }
    return 0;
  }
};

void mirror(BUSClientInterface& client, int32_t number) {
  BUSParam data, reply;
  const std::string text = std::to_string(number);
  data.writeCString(text.c_str());
  data.writeInt32(number);
  // The first pair of bits requests a text, the second a number.
  fuzz::require(client.transact(1 | 2 << 2, data, &reply, 0) == 0, "an answer");
  const char* const echoed = reply.readCString();
  fuzz::require(echoed != nullptr && text == echoed && reply.readInt32() == number, "the answer");
}

// Returns items, which are valid unless a byte selects a fault.
std::string items(fuzz::Input& input) {
  std::string all;
  for (unsigned count = input.below(8); count > 0; --count) {
    const uint32_t form = input.below(4);
    if (form == 0) all += "i" + word(input.value<uint32_t>());
    if (form == 1) {
      std::string text = input.bytes(input.byte());
      std::replace(text.begin(), text.end(), '\0', ' ');
      all += "s" + word(static_cast<uint32_t>(text.size() + 1)) + text + '\0';
    }
    if (form == 2) all += "s" + word(input.value<uint32_t>());
    if (form >= 2) all += input.bytes(input.byte());
  }
  return all;
}

// Returns a frame with a valid kind and length unless a byte selects a fault.
std::string frame(fuzz::Input& input, bus::FrameKind usual, uint32_t code) {
  const uint8_t faults = input.byte();
  uint32_t kind = static_cast<uint32_t>(usual);
  if (faults & 1) kind = static_cast<uint32_t>(bus::FrameKind::kRequestNoReply);
  if (faults & 2) kind = static_cast<uint32_t>(bus::FrameKind::kFailure);
  if (faults & 4) kind = input.value<uint32_t>();
  if (faults & 8) code = input.value<uint32_t>();
  const std::string body = items(input);
  uint32_t length = static_cast<uint32_t>(body.size());
  if (faults & 16) length += input.byte() - 128u;
  if (faults & 32) length = input.value<uint32_t>();
  return word(kind) + word(length) + word(code) + word(input.byte()) + body;
}

// A connection that never waits.
struct Attacker : RawPeer {
  using RawPeer::RawPeer;

  // Receives available bytes, which must be replies.
  void receiveReplies() {
    input_ += receive(SIZE_MAX, MSG_DONTWAIT);
    while (input_.size() >= bus::kHeaderSize) {
      const bus::FrameHeader header = bus::readHeader(input_.data());
      fuzz::require(
          header.kind == bus::FrameKind::kReply || header.kind == bus::FrameKind::kFailure,
          "replies of the server");
      if (input_.size() < bus::kHeaderSize + header.length) break;
      BUSPlatform::Parcel parcel;
      fuzz::require(parcel.load(input_.data() + bus::kHeaderSize, header.length), "items");
      input_.erase(0, bus::kHeaderSize + header.length);
    }
  }

 private:
  std::string input_;
};

// Uses several connections in turn, one of them well-behaved: before the server answers that one,
// it has read the bytes of the others.
void attackServer(fuzz::Input& input) {
  static const std::string name = nameOf("server");
  static Server server(name);
  static BUSClientInterface client(name.c_str(), "fuzz");
  std::array<Attacker, 4> peers;
  int32_t calls = 0;
  while (input.left() > 0) {
    Attacker& peer = peers[input.below(peers.size())];
    const uint32_t action = input.below(10);
    if (action == 0) peer = Attacker(name);
    if (action == 1) peer = Attacker();
    if (action == 2) peer.finish();
    if (action == 3) peer.receiveReplies();
    if (action == 4) peer.send(input.bytes(input.byte()));
    if (action == 5)
      peer.send(std::string(input.value<uint16_t>(), static_cast<char>(input.byte())));
    if (action >= 6) {
      const uint32_t code = action == 6 ? kLarge : action == 8 ? kThrow : kMirror;
      const std::string whole = frame(input, bus::FrameKind::kRequest, code);
      const size_t half = action == 7 ? std::min<size_t>(input.byte(), whole.size()) : 0;
      peer.send(whole.substr(0, half));
      if (half > 0) mirror(client, ++calls);
      peer.send(whole.substr(half));
    }
    mirror(client, ++calls);
  }
  for (Attacker& peer : peers) peer.receiveReplies();
}

// Answers requests with given bytes, in two pieces.
class Liar {
 public:
  Liar() : listener_(bus::streamSocket(true)) {
    // Binds under another name, because a sweep of stale sockets removes a socket without listener.
    const std::string hidden = "/tmp/" + name();
    const bus::Address address(hidden);
    ::unlink(hidden.c_str());
    fuzz::require(::bind(listener_.get(), address.get(), address.size()) == 0 &&
                      ::listen(listener_.get(), 8) == 0 &&
                      ::rename(hidden.c_str(), bus::socketPath(name()).c_str()) == 0,
                  "a listener");
    std::thread([this] { run(); }).detach();
  }

  static std::string name() { return nameOf("liar"); }

  // Sets the answer of the next request. `last`: the connection ends after it.
  void prepare(std::string first, std::string second, bool last) {
    std::lock_guard<std::mutex> lock(mutex_);
    first_ = std::move(first);
    second_ = std::move(second);
    last_ = last;
  }

 private:
  void run() {
    // The fuzzer's alarm must not end a receive.
    sigset_t signals;
    ::sigfillset(&signals);
    ::pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    for (;;) {
      const bus::Fd peer(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      char request[4096];
      for (bool more = true; more && ::recv(peer.get(), request, sizeof request, 0) > 0;) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const std::string& piece : {first_, second_})
          (void)!::send(peer.get(), piece.data(), piece.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        more = !last_;
      }
    }
  }

  const bus::Fd listener_;
  std::mutex mutex_;
  std::string first_, second_;
  bool last_ = false;
};

enum class Sound { kYes, kFailure, kNo, kWithMore };

// Returns whether bytes start with a reply or with the message that there is none.
Sound judge(const std::string& bytes, uint32_t code) {
  if (bytes.size() < bus::kHeaderSize) return Sound::kNo;
  const bus::FrameHeader header = bus::readHeader(bytes.data());
  const bool failure = header.kind == bus::FrameKind::kFailure;
  if ((header.kind != bus::FrameKind::kReply && !failure) || header.code != code) return Sound::kNo;
  const std::string body = bytes.substr(bus::kHeaderSize);
  if (header.length > body.size()) return Sound::kNo;
  if (header.length < body.size()) return Sound::kWithMore;
  if (failure) return Sound::kFailure;
  BUSPlatform::Parcel items;
  return items.load(body.data(), header.length) ? Sound::kYes : Sound::kNo;
}

void lieToClient(fuzz::Input& input) {
  static Liar& liar = *new Liar;  // its thread never ends
  BUSClientInterface client(Liar::name().c_str(), "fuzz");
  Sound sound = Sound::kYes;
  while (input.left() > 0 && sound != Sound::kWithMore) {
    const uint32_t code = input.byte();
    const uint8_t form = input.byte();
    const std::string lie =
        form & 1 ? input.bytes(input.byte()) : frame(input, bus::FrameKind::kReply, code);
    const size_t half = std::min<size_t>(input.byte(), lie.size());
    sound = judge(lie, code);
    liar.prepare(lie.substr(0, half), lie.substr(half),
                 sound == Sound::kNo || sound == Sound::kWithMore);
    BUSParam data, reply;
    data.writeInt32(1);
    reply.writeCString("before");
    const int result = client.transact(code, data, form & 2 ? nullptr : &reply, form);
    if (sound != Sound::kWithMore)
      fuzz::require((result == 0) == (sound == Sound::kYes), "success with a sound reply");
    if (form & 2) continue;
    if (result != 0)
      fuzz::require(reply.readCString() == nullptr && reply.readInt32() == 0, "no reply");
    for (unsigned i = 0; i < 8; ++i) {
      if (const char* text = reply.readCString()) (void)std::string(text);
      if (form & 4) (void)reply.readInt32();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  if (input.byte() & 1)
    lieToClient(input);
  else
    attackServer(input);
  return 0;
}
