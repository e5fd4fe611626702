#ifndef ATSC_ATSC_SERVER_SERVICE_H_
#define ATSC_ATSC_SERVER_SERVICE_H_

#include <bus.h>
#include <json/json.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "atsc_immortal.h"

namespace ATSCBUS {

// Command server of the service process. One object per process, g_atsc_server_service.
//
// Commands run on the BUS server thread inside the transaction. Only the channel change is queued
// and runs on the command thread, so that no sender waits while a channel is tuned.
class __attribute__((visibility("default"))) ATSCServerService : public BUSServerInterface {
 public:
  // No channel index known.
  static constexpr int32_t INVALID_CHANNEL_INDEX = -1;

  // Starts the command thread.
  ATSCServerService();
  // Ends the command thread and drops a queued channel change that has not begun. At process exit,
  // which destroys g_atsc_server_service, waits at most one second for a channel change in the
  // middleware, then detaches the thread. Does nothing in a forked child and on the command thread
  // itself.
  ~ATSCServerService() override;

  int onTransact(unsigned int code, BUSParam& data, BUSParam* reply, unsigned int flags) override;

  // Runs one JSON command. Returns the result of the handler, 0 or -1. Returns -1 also for an
  // unknown class or command and for a text that is not a JSON object of the right types, 0 for an
  // empty text. A handler that replies with data sets `*result` to a text allocated with calloc().
  // Never throws.
  int jsonCommand(const char* command, char** result);

  // Returns all commands, each as its class, a blank and its name; for diagnostics.
  static std::vector<std::string> commandNames();

  // The channel-table index of the channel that the last channel change reached.
  int32_t savedChannelIndex() const { return saved_channel_index_; }

  // The handlers of the commands. A handler that takes a request may throw for a member of the
  // wrong type; jsonCommand() then returns -1.

  int FW_init();
  int FW_powerDown(bool powerdown);
  int FW_playSrc(std::string src);
  int FW_playCurSrc();
  int FW_stopCurSrc();
  int FW_changeChannel(Json::Value request);
  int FW_modifyChannel(Json::Value request);
  int FW_addChannel(Json::Value request);
  int FW_reloadDB();
  void OS_printSemList();

  int Scan_start(Json::Value request);
  int Scan_stop();
  static void Scan_Callback(void* progress, int state);

  int Srv_resetDB(std::string src);
  int Srv_getCurrent(char** result);
  int Test_getAllServiceAndUpdate(bool terrestrial);

  int Time_setSyncMode(Json::Value request);
  int Time_setTimezone(Json::Value request);
  int Time_getCurrentSetting(char** result);
  int Time_getCurrentTime(char** result);

  int AUD_changeAudio(unsigned int index);
  int AUD_setDualMode(Json::Value request);
  int VC_close();
  int CC_GetSAR(Json::Value request, char** result);

  int CN_setPreAudLang(Json::Value request);
  int CN_getPreAudLang(char** result);
  int CN_getCurSource(char** result);

  int PC_NumOfDimension(Json::Value& request, char** result);
  int PC_DimensionName(Json::Value& request, char** result);
  int PC_RetreiveRating(Json::Value& request, char** result);
  int PC_StoreRating(Json::Value& request, char** result);
  int PC_RatingEncode(Json::Value& request, char** result);
  int PC_DRRTRatingEncode(Json::Value& request, char** result);
  int PC_GetParentalDetails(Json::Value& request, char** result);
  int PC_SetParentalDetails(Json::Value& request, char** result);
  int PC_GetRRTRegions(Json::Value& request, char** result);
  int PC_GetRRTDetails(Json::Value& request, char** result);
  int PC_GetRatingValueText(Json::Value& request, char** result);
  int PC_SetRatingStatusUnratedGroups(Json::Value& request, char** result);
  int PC_GetRatingStatusUnratedGroups(Json::Value& request, char** result);
  int PC_ResetUserRatings(Json::Value& request, char** result);
  int PC_SetDefaultSetting(Json::Value& request, char** result);
  int PC_StoreAll(Json::Value& request, char** result);
  int PC_SetCurrentRegion(Json::Value& request, char** result);
  int PC_GetCurrentRegion(Json::Value& request, char** result);
  int PC_StartCollectRRT(Json::Value& request, char** result);
  int PC_IsParentalBlocked(Json::Value& request, char** result);
  int PC_CheckRating(Json::Value& request, char** result);
  int PC_PwdUnlock(Json::Value& request, char** result);

  int EAS_EASUserSetting(Json::Value& request, char** result);
  int EAS_DisableOptionalEASEventIdCheck(Json::Value& request, char** result);
  int EAS_EnableCableEASOnly(Json::Value& request, char** result);

 private:
  struct Dispatcher;

  // What the command thread waits for, and its end.
  struct Stop {
    std::mutex mutex;
    std::condition_variable changed;
    size_t commands = 0;     // in the queue, for which it has not woken yet; guarded by mutex
    bool requested = false;  // guarded by mutex
    bool ended = false;      // guarded by mutex
  };

  void _ATSC_Service_Command_task();
  void queueCommand(const std::string& text);
  bool waitForCommand();
  bool waitForStop(unsigned int microseconds);
  void endCommandThread();

  // The data of the command thread is never destroyed: the thread may run longer than the globals
  // exist.
  atsc::Immortal<std::vector<std::string>>
      command_queue_;  // guarded by queue_mutex_; front is next
  atsc::Immortal<std::thread> command_thread_;
  std::mutex queue_mutex_;
  int32_t reduced_logging_ = 0;  // BUS server thread only
  std::atomic<int32_t> saved_channel_index_{INVALID_CHANNEL_INDEX};
  atsc::Immortal<Stop> stop_;
  const pid_t process_ = getpid();  // the process of the command thread
};

}  // namespace ATSCBUS

// The server of the process. Its memory remains valid for all threads.
extern ATSCBUS::ATSCServerService g_atsc_server_service;

// Returns the channel-table index of the playing service: -1 when nothing plays, 65535 when the row
// is not found. Any thread.
int GetCurrentChannelIdx();

#endif  // ATSC_ATSC_SERVER_SERVICE_H_
