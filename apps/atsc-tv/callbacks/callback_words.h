// What the callbacks mean, for people.
#ifndef ATSC_TV_CALLBACKS_CALLBACK_WORDS_H_
#define ATSC_TV_CALLBACKS_CALLBACK_WORDS_H_

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tv {

class CallbackWords {
 public:
  // Reads the databases when a message speaks of channels, and now, to know what is new then.
  CallbackWords(std::string channelDatabase, std::string eventDatabase);

  // What a message says, beside its kind; nothing when the kind is unknown. Not yet fit for a
  // terminal. Never throws because of a message's content or of a database.
  std::optional<std::string> explain(const Json::Value& message);

 private:
  // By channel key, a number that changes with the channel's programmes.
  using Fingerprints = std::map<std::string, uint64_t>;

  std::string guideUpdate(const Json::Value& message);
  Fingerprints readFingerprints() const;

  const std::string channelDatabase_;
  const std::string eventDatabase_;
  Fingerprints fingerprints_;
};

}  // namespace tv

#endif  // ATSC_TV_CALLBACKS_CALLBACK_WORDS_H_
