// Files with the state of the receiver.
#ifndef ATSC_HOST_RECEIVER_STATION_STATE_FILE_H_
#define ATSC_HOST_RECEIVER_STATION_STATE_FILE_H_

#include <json/value.h>

#include <functional>
#include <string>

namespace atschost {

// Returns ATSC_HOST_STATE, else $XDG_STATE_HOME/atsc-host, else ~/.local/state/atsc-host; empty
// when the environment has none of them.
std::string stateFolder();

// A JSON file that is replaced as a whole, so that a power cut leaves the old or the new content.
// The caller serialises all calls.
class StateFile {
 public:
  // `format` is written to the file. Files without it are not accepted.
  StateFile(const std::string& folder, const std::string& name, const std::string& format);

  // Reads the file, if any, and passes its content to `accept`, which throws if it cannot use the
  // content. A file that cannot be used is renamed to *.bad and logged. Returns whether the content
  // was accepted.
  bool load(const std::function<void(const Json::Value&)>& accept);

  // Writes `content` (an object) unless the file already contains it. On failure logs the reason
  // and returns false.
  bool store(Json::Value content);

 private:
  bool write(const std::string& text) const;

  const std::string folder_;
  const std::string path_;
  const std::string format_;
  std::string stored_;   // text of the file, if known
  bool tried_ = false;   // reading was tried
  bool unread_ = false;  // the file exists, but a system error prevented reading
};

// Returns an unsigned number of at most `max`. Throws otherwise.
uint32_t numberMember(const Json::Value& object, const char* key, uint32_t max);

// Return a number or a boolean, or `absent` for a member that older files do not have.
uint32_t numberMember(const Json::Value& object, const char* key, uint32_t max, uint32_t absent);
bool boolMember(const Json::Value& object, const char* key, bool absent);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_STATE_FILE_H_
