// Explains callbacks to the user.
#ifndef ATSC_TV_CALLBACKS_CALLBACK_WORDS_H_
#define ATSC_TV_CALLBACKS_CALLBACK_WORDS_H_

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace apps::tv {

class CallbackWords {
 public:
  // Reads the event database, so that explain() can name the changed programmes.
  CallbackWords(std::string channelDatabase, std::string eventDatabase);

  // Explains a message without naming its kind. Returns nothing if the kind is unknown. The text is
  // not yet printable(). Does not throw for any content of a message or of the databases.
  std::optional<std::string> explain(const Json::Value& message);

 private:
  // Maps a channel's key to a number that changes with the channel's programmes.
  using Fingerprints = std::map<std::string, uint64_t>;

  std::string guideUpdate(const Json::Value& message);
  Fingerprints readFingerprints() const;

  const std::string channelDatabase_;
  const std::string eventDatabase_;
  Fingerprints fingerprints_;
};

}  // namespace apps::tv

#endif  // ATSC_TV_CALLBACKS_CALLBACK_WORDS_H_
