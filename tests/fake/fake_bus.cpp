// BUS inside one process and the recording logger.
#include <bus.h>
#include <logger_cpp.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "fake_state.h"
#include "wait.h"

namespace {

void log(const char* level, const char* format, va_list arguments) {
  if (!fake::gRecording) return;
  char* text = nullptr;
  if (vasprintf(&text, format, arguments) < 0) return;
  fake::state()->logs.push_back(std::string(level) + " " + text);
  free(text);
}

}  // namespace

struct BUSServerInterface::Impl {
  std::string name;
};

// Like a BUS without bus_lifetime.h.
BUSServerInterface::BUSServerInterface(const char* name, const char* /*description*/)
    : impl_(new Impl{name}) {
  fake::state()->servers.emplace(name, this);  // a name has one server, the first one
}

BUSServerInterface::~BUSServerInterface() {
  const auto locked = fake::state();
  const auto served = locked->servers.find(impl_->name);
  if (served != locked->servers.end() && served->second == this) locked->servers.erase(served);
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
  fake::Hook hook;
  {
    const auto locked = fake::state();
    const auto found = locked->servers.find(impl_->name);
    if (found != locked->servers.end()) server = found->second;
    hook = locked->sendHook;
  }
  if (server != nullptr) return server->onTransact(code, data, reply, flags);
  const char* read = data.readCString();
  const std::string text = read != nullptr ? read : "";
  if (hook) hook(text);
  fake::state()->sent.push_back(text);
  return -1;
}

std::map<std::string, std::string>& fake::loggers() {
  static std::map<std::string, std::string> names;
  return names;
}

struct LoggerCpp::Impl {};

LoggerCpp::LoggerCpp(const char* name, const char* category) : impl_(new Impl) {
  fake::loggers().emplace(name, category);
}
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

std::vector<std::string> waitForSent(size_t count) {
  eventually([count] { return state()->sent.size() >= count; });
  return sent();
}

// Converts "LEVEL tag: [pid][function()][file:line] text": removes the tag and the parts in
// brackets.
std::vector<std::string> logs() {
  std::vector<std::string> lines = state()->logs;
  for (std::string& line : lines) {
    const size_t location = line.find(".cpp:");
    const size_t end = location == std::string::npos ? location : line.find("] ", location);
    if (end != std::string::npos) line = line.substr(0, line.find(' ') + 1) + line.substr(end + 2);
  }
  return lines;
}

std::string logLine(const std::string& text) {
  const auto locked = state();
  for (auto line = locked->logs.rbegin(); line != locked->logs.rend(); ++line) {
    if (line->find(text) != std::string::npos) return *line;
  }
  return {};
}

bool logged(const std::string& level, const std::string& text) {
  const std::vector<std::string> lines = logs();
  return std::find(lines.begin(), lines.end(), level + " " + text) != lines.end();
}

}  // namespace fake
