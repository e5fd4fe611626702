// JSON over BUS: what the two proxies and the two servers share. They differ in texts only.
#ifndef ATSC_ATSC_JSON_TRANSPORT_H_
#define ATSC_ATSC_JSON_TRANSPORT_H_

#include <bus.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>

// Kernel thread id of the thread that last entered the server's onTransact(), 0 before the first.
// The opposite proxy warns when it is called on that thread.
extern std::atomic<uint32_t> service_thread_tid;
extern std::atomic<uint32_t> tv_thread_tid;

namespace ATSCBUS {

// The only transaction code: "JSON" as a big-endian number.
inline constexpr unsigned int kJSONTransaction = 0x4A534F4E;

inline constexpr const char* kServiceServerName = "atsc.qel.service.srv";
inline constexpr const char* kTVServerName = "atsc.qel.tv.srv";

// The kernel id of the calling thread.
uint32_t kernelThreadId();

// One direction's texts on the sending side.
struct JSONProxyTexts {
  const char* tag;
  const char* transaction;  // what is logged for each transaction
  const char* caller;       // who is warned about calling inside the server thread
  const std::atomic<uint32_t>& serverThread;
};

// One direction's texts on the serving side.
struct JSONServerTexts {
  const char* tag;
  const char* transaction;
  std::atomic<uint32_t>& serverThread;
};

namespace transport {

// Sends one JSON text and reads the answer: the reply text into `*result` when `result` is not null
// (calloc'ed for the caller, or null), the result as return value. -1 when `command` is null.
int SendJSONCommand(BUSClientInterface& client, const JSONProxyTexts& texts, const char* command,
                    char** result);

// Handles one transaction: reads the request, calls `handler(request, &resultText)` and writes the
// reply. Returns the handler's result, 0 for another transaction code.
int onTransact(const JSONServerTexts& texts, unsigned int code, BUSParam& data, BUSParam* reply,
               const std::function<int(const char*, char**)>& handler);

}  // namespace transport

}  // namespace ATSCBUS

#endif  // ATSC_ATSC_JSON_TRANSPORT_H_
