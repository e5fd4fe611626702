#include "service/server/atsc_server_service.h"

#include <bus_lifetime.h>

#include <chrono>
#include <exception>

#include "atsc_json_transport.h"
#include "atsc_log.h"

ATSC_LOGGER("service/srv")

namespace ATSCBUS {

namespace {

// Time after each command of the queue.
constexpr unsigned int kPauseMicroseconds = 100000;
// Time for which the end of the process waits for a channel change.
constexpr std::chrono::seconds kEndWait{1};

}  // namespace

ATSCServerService::ATSCServerService()
    : BUSServerInterface(kServiceServerName, kServiceServerName) {
  ATSC_ENTER();
  *command_thread_ = std::thread(&ATSCServerService::_ATSC_Service_Command_task, this);
  if (BUS_server_complete != nullptr) BUS_server_complete(this);
  ATSC_LEAVE();
}

ATSCServerService::~ATSCServerService() {
  ATSC_ENTER();
  if (BUS_server_ends != nullptr) BUS_server_ends(this);
  endCommandThread();
  ATSC_LEAVE();
}

void ATSCServerService::endCommandThread() {
  if (getpid() != process_ || std::this_thread::get_id() == command_thread_->get_id()) return;
  std::unique_lock<std::mutex> lock(stop_->mutex);
  stop_->requested = true;
  stop_->changed.notify_all();
  if (this != &g_atsc_server_service ||
      stop_->changed.wait_for(lock, kEndWait, [this] { return stop_->ended; })) {
    lock.unlock();
    command_thread_->join();
    std::vector<std::string>().swap(*command_queue_);
  } else {
    command_thread_->detach();
    ATSC_LOG(Warn, "the process ends during a channel change");
  }
}

int ATSCServerService::onTransact(unsigned int code, BUSParam& data, BUSParam* reply,
                                  unsigned int /*flags*/) {
  static const JSONServerTexts texts{"service/srv", "ATSC_SERVCICE_CMD_ID_JSON_COMMAND",
                                     service_thread_tid};
  return transport::onTransact(
      texts, code, data, reply,
      [this](const char* request, char** result) { return jsonCommand(request, result); });
}

// Sleeps. Returns true when the process is ending.
bool ATSCServerService::waitForStop(unsigned int microseconds) {
  std::unique_lock<std::mutex> lock(stop_->mutex);
  return stop_->changed.wait_for(lock, std::chrono::microseconds(microseconds),
                                 [this] { return stop_->requested; });
}

void ATSCServerService::queueCommand(const std::string& text) {
  {
    const std::lock_guard<std::mutex> lock(queue_mutex_);
    command_queue_->push_back(text);
  }
  {
    const std::lock_guard<std::mutex> lock(stop_->mutex);
    ++stop_->commands;
  }
  stop_->changed.notify_all();
}

// Waits for a command. Returns true when the process is ending.
bool ATSCServerService::waitForCommand() {
  std::unique_lock<std::mutex> lock(stop_->mutex);
  stop_->changed.wait(lock, [this] { return stop_->requested || stop_->commands > 0; });
  if (stop_->requested) return true;
  --stop_->commands;
  return false;
}

void ATSCServerService::_ATSC_Service_Command_task() {
  ATSC_ENTER();
  bool pause = false;
  while (!(pause && waitForStop(kPauseMicroseconds)) && !waitForCommand()) {
    std::string command;
    {
      std::lock_guard<std::mutex> lock(queue_mutex_);
      command = std::move(command_queue_->front());
      command_queue_->erase(command_queue_->begin());
    }
    pause = true;
    if (command.empty()) continue;
    try {
      Json::Reader reader;
      Json::Value request;
      if (!reader.parse(command, request, false)) {
        pause = false;
        continue;
      }
      if (request.get("command", "").asString() == "CHANNELCHANGE") FW_changeChannel(request);
    } catch (const std::exception& e) {
      ATSC_LOG(Error, "queued command dropped: %s: %.200s", e.what(), command.c_str());
    } catch (...) {
      ATSC_LOG(Error, "queued command dropped: %.200s", command.c_str());
    }
  }
  const std::lock_guard<std::mutex> lock(stop_->mutex);
  stop_->ended = true;
  stop_->changed.notify_all();
}

}  // namespace ATSCBUS
