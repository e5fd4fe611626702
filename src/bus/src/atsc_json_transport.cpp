#include "atsc_json_transport.h"

#include <pthread.h>
#include <sys/syscall.h>

#include <cstdlib>
#include <cstring>
#include <exception>

#include "atsc_log.h"

ATSC_LOGGER("atsc/bus")

std::atomic<uint32_t> service_thread_tid{0};
std::atomic<uint32_t> tv_thread_tid{0};

namespace ATSCBUS {

uint32_t kernelThreadId() {
  thread_local uint32_t id = 0;
  static const int forkHandler = pthread_atfork(nullptr, nullptr, [] { id = 0; });
  (void)forkHandler;
  if (id == 0) id = static_cast<uint32_t>(syscall(SYS_gettid));
  return id;
}

namespace transport {

int SendJSONCommand(BUSClientInterface& client, const JSONProxyTexts& texts, const char* command,
                    char** result) {
  ATSC_LOG_AS(Trace, texts.tag, "ENTER ");
  ATSC_LOG_AS(Debug, texts.tag, "%s", texts.transaction);
  if (result != nullptr) *result = nullptr;
  if (command == nullptr) {
    ATSC_LOG_AS(Error, texts.tag, "command is NULL.");
    return -1;
  }
  if (kernelThreadId() == texts.serverThread.load(std::memory_order_relaxed)) {
    ATSC_LOG_AS(Warn, texts.tag, "%s call command(%s) in IPC server thread", texts.caller, command);
  }
  ATSC_LOG_AS(Debug, texts.tag, "${%s}='%s'", "_str_command", command);
  int code = -1;
  try {
    BUSParam data;
    BUSParam reply;
    data.writeCString(command);
    ATSC_LOG_AS(Trace, texts.tag, "transact[json] : enter");
    client.transact(kJSONTransaction, data, &reply, 0);
    ATSC_LOG_AS(Trace, texts.tag, "transact[json] : leave");
    if (result != nullptr) {
      if (const char* const text = reply.readCString()) {
        ATSC_LOG_AS(Debug, texts.tag, "${%s}='%s'", "_str_result", text);
        const size_t length = strlen(text);
        *result = static_cast<char*>(calloc(length + 1, 1));
        if (*result != nullptr) {
          memcpy(*result, text, length);
        } else {
          ATSC_LOG_AS(Debug, texts.tag, "can't allocate buffer for result ( len = %d ).",
                      static_cast<int>(length));
        }
      } else {
        ATSC_LOG_AS(Debug, texts.tag, "result is NULL.");
      }
    }
    code = reply.readInt32();
  } catch (const std::exception& e) {
    ATSC_LOG_AS(Error, texts.tag, "command not sent: %s", e.what());
  }
  ATSC_LOG_AS(Trace, texts.tag, "LEAVE ");
  return code;
}

int onTransact(const JSONServerTexts& texts, unsigned int code, BUSParam& data, BUSParam* reply,
               const std::function<int(const char*, char**)>& handler) {
  ATSC_LOG_AS(Trace, texts.tag, "ENTER ");
  ATSC_LOG_AS(Debug, texts.tag, "${%s}='0x%08lx'", "code", static_cast<unsigned long>(code));
  texts.serverThread.store(kernelThreadId(), std::memory_order_relaxed);
  int result = 0;
  if (code == kJSONTransaction) {
    ATSC_LOG_AS(Debug, texts.tag, "%s", texts.transaction);
    const char* request = data.readCString();
    char* resultText = nullptr;
    ATSC_LOG_AS(Debug, texts.tag, "${%s}='%s'", "_command", request ? request : "");
    result = handler(request, &resultText);
    if (reply != nullptr) {
      if (resultText != nullptr) {
        ATSC_LOG_AS(Debug, texts.tag, "${%s}='%s'", "_result", resultText);
        reply->writeCString(resultText);
        free(resultText);
      }
      reply->writeInt32(result);
    }
  }
  ATSC_LOG_AS(Trace, texts.tag, "LEAVE ");
  return result;
}

}  // namespace transport

}  // namespace ATSCBUS
