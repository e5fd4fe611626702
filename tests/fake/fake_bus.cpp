// BUS inside one process and the recording logger.
#include <bus.h>
#include <logger_cpp.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <variant>

#include "fake.h"

namespace fake {

std::atomic<bool> gRecording{true};

void setRecording(bool on) { gRecording = on; }

}  // namespace fake

namespace {

struct Record {
  std::mutex mutex;
  std::condition_variable changed;
  std::function<void(const std::string&)> sendHook;
  std::map<std::string, BUSServerInterface*> servers;
  std::vector<std::string> sent;
  std::vector<std::string> logs;
};

// Lives longer than all globals that log.
Record& record() {
  static Record* instance = new Record;
  return *instance;
}

void log(const char* level, const char* format, va_list arguments) {
  if (!fake::gRecording) return;
  va_list copy;
  va_copy(copy, arguments);
  const int length = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text(static_cast<size_t>(length) + 1, '\0');
  vsnprintf(&text[0], text.size(), format, arguments);
  text.pop_back();
  std::lock_guard<std::mutex> lock(record().mutex);
  record().logs.push_back(std::string(level) + " " + text);
}

}  // namespace

struct BUSParam::Impl {
  std::deque<std::variant<std::string, int32_t>> items;
  std::deque<std::string> read;
};

BUSParam::BUSParam() : impl_(new Impl) {}
BUSParam::~BUSParam() = default;

int BUSParam::writeCString(const char* text) {
  if (text == nullptr) return -1;
  impl_->items.emplace_back(std::string(text));
  return 0;
}

const char* BUSParam::readCString() {
  if (impl_->items.empty() || !std::holds_alternative<std::string>(impl_->items.front())) {
    return nullptr;
  }
  impl_->read.push_back(std::get<std::string>(impl_->items.front()));
  impl_->items.pop_front();
  return impl_->read.back().c_str();
}

int BUSParam::writeInt32(int32_t value) {
  impl_->items.emplace_back(value);
  return 0;
}

int32_t BUSParam::readInt32() {
  while (!impl_->items.empty() && std::holds_alternative<std::string>(impl_->items.front())) {
    impl_->items.pop_front();
  }
  if (impl_->items.empty()) return 0;
  const int32_t value = std::get<int32_t>(impl_->items.front());
  impl_->items.pop_front();
  return value;
}

struct BUSServerInterface::Impl {
  std::string name;
};

// Like a BUS without bus_lifetime.h.
BUSServerInterface::BUSServerInterface(const char* name, const char* /*description*/)
    : impl_(new Impl{name}) {
  std::lock_guard<std::mutex> lock(record().mutex);
  record().servers.emplace(impl_->name, this);  // a name has one server, the first one
}

BUSServerInterface::~BUSServerInterface() {
  std::lock_guard<std::mutex> lock(record().mutex);
  const auto served = record().servers.find(impl_->name);
  if (served != record().servers.end() && served->second == this) record().servers.erase(served);
}

struct BUSClientInterface::Impl {
  std::string name;
};

BUSClientInterface::BUSClientInterface(const char* name, const char* /*description*/)
    : impl_(new Impl{name}) {}
BUSClientInterface::~BUSClientInterface() = default;

int BUSClientInterface::transact(unsigned int code, BUSParam& data, BUSParam* reply,
                                 unsigned int flags) {
  BUSServerInterface* server = nullptr;
  {
    std::lock_guard<std::mutex> lock(record().mutex);
    const auto found = record().servers.find(impl_->name);
    if (found != record().servers.end()) server = found->second;
  }
  if (server != nullptr) return server->onTransact(code, data, reply, flags);
  const char* read = data.readCString();
  const std::string text = read != nullptr ? read : "";
  std::function<void(const std::string&)> hook;
  {
    std::lock_guard<std::mutex> lock(record().mutex);
    hook = record().sendHook;
  }
  if (hook) hook(text);
  std::lock_guard<std::mutex> lock(record().mutex);
  record().sent.push_back(text);
  record().changed.notify_all();
  return -1;
}

struct LoggerCpp::Impl {};

LoggerCpp::LoggerCpp(const char* /*name*/, const char* /*category*/) : impl_(new Impl) {}
LoggerCpp::~LoggerCpp() = default;

#define FAKE_LEVEL(level)                          \
  void LoggerCpp::level(const char* format, ...) { \
    va_list arguments;                             \
    va_start(arguments, format);                   \
    log(#level, format, arguments);                \
    va_end(arguments);                             \
  }
FAKE_LEVEL(Trace)
FAKE_LEVEL(Debug)
FAKE_LEVEL(Info)
FAKE_LEVEL(Warn)
FAKE_LEVEL(Error)

namespace fake {

void resetBus() {
  std::lock_guard<std::mutex> lock(record().mutex);
  record().sent.clear();
  record().logs.clear();
  record().sendHook = nullptr;
}

void onSend(std::function<void(const std::string&)> hook) {
  std::lock_guard<std::mutex> lock(record().mutex);
  record().sendHook = std::move(hook);
}

std::vector<std::string> waitForSent(size_t count) {
  std::unique_lock<std::mutex> lock(record().mutex);
  record().changed.wait_for(lock, std::chrono::seconds(60),
                            [count] { return record().sent.size() >= count; });
  return record().sent;
}

std::vector<std::string> sent() {
  std::lock_guard<std::mutex> lock(record().mutex);
  return record().sent;
}

// Converts "LEVEL tag: [pid][function()][file:line] text": removes the tag and the parts in
// brackets.
std::vector<std::string> logs() {
  std::lock_guard<std::mutex> lock(record().mutex);
  std::vector<std::string> lines;
  for (const std::string& line : record().logs) {
    const size_t location = line.find(".cpp:");
    const size_t end = location == std::string::npos ? location : line.find("] ", location);
    lines.push_back(end == std::string::npos
                        ? line
                        : line.substr(0, line.find(' ') + 1) + line.substr(end + 2));
  }
  return lines;
}

std::string logLine(const std::string& text) {
  std::lock_guard<std::mutex> lock(record().mutex);
  for (auto line = record().logs.rbegin(); line != record().logs.rend(); ++line) {
    if (line->find(text) != std::string::npos) return *line;
  }
  return {};
}

bool logged(const std::string& level, const std::string& text) {
  const std::string wanted = level + " " + text;
  for (const std::string& line : logs()) {
    if (line == wanted) return true;
  }
  return false;
}

}  // namespace fake
