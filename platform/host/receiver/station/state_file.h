// Files in which the receiver keeps its state.
#ifndef ATSC_HOST_RECEIVER_STATION_STATE_FILE_H_
#define ATSC_HOST_RECEIVER_STATION_STATE_FILE_H_

#include <json/value.h>

#include <functional>
#include <string>

namespace atschost {

// ATSC_HOST_STATE, else $XDG_STATE_HOME/atsc-host, else ~/.local/state/atsc-host; empty when the
// environment names none.
std::string stateFolder();

// A JSON file that is replaced as a whole, so that a power cut leaves the old one or the new one.
// The caller serialises all calls.
class StateFile {
 public:
  // `format` is written into the file and must be there on reading: a foreign file is not taken.
  StateFile(const std::string& folder, const std::string& name, const std::string& format);

  // Reads the file if there is one and hands its content to `accept`, which throws on content that
  // it cannot use. A file that cannot be used is renamed to *.bad and reported. Whether content was
  // accepted.
  bool load(const std::function<void(const Json::Value&)>& accept);

  // Writes `content` (an object) unless the file holds it already. False on failure, with the
  // reason in the log.
  bool store(Json::Value content);

 private:
  bool write(const std::string& text) const;

  const std::string folder_;
  const std::string path_;
  const std::string format_;
  std::string stored_;   // text of the file, as far as known
  bool tried_ = false;   // to read it
  bool unread_ = false;  // there is a file, but the system did not let it be read
};

// An unsigned number not above `max`; anything else throws.
uint32_t numberMember(const Json::Value& object, const char* key, uint32_t max);

// The same, and a truth value, of members that older files do not have.
uint32_t numberMember(const Json::Value& object, const char* key, uint32_t max, uint32_t absent);
bool boolMember(const Json::Value& object, const char* key, bool absent);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_STATE_FILE_H_
