// JSON over BUS: the common part of the two proxies and the two servers, which differ only in
// texts.
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

// Returns the kernel id of the calling thread.
uint32_t kernelThreadId();

// Texts of the sending side of one direction.
struct JSONProxyTexts {
  const char* tag;
  const char* transaction;  // log text of each transaction
  const char* caller;       // name in the warning about a call on the server thread
  const std::atomic<uint32_t>& serverThread;
};

// Texts of the serving side of one direction.
struct JSONServerTexts {
  const char* tag;
  const char* transaction;
  std::atomic<uint32_t>& serverThread;
};

namespace transport {

// Sends one JSON text and reads the reply. Returns the result of the peer, or -1 when `command` is
// null. If `result` is not null, `*result` is set to the reply text, allocated for the caller with
// calloc(), or to null.
int SendJSONCommand(BUSClientInterface& client, const JSONProxyTexts& texts, const char* command,
                    char** result);

// Handles one transaction: reads the request, calls `handler(request, &resultText)` and writes the
// reply. Returns the handler's result, 0 for another transaction code.
int onTransact(const JSONServerTexts& texts, unsigned int code, BUSParam& data, BUSParam* reply,
               const std::function<int(const char*, char**)>& handler);

}  // namespace transport

}  // namespace ATSCBUS

#endif  // ATSC_ATSC_JSON_TRANSPORT_H_
