#include "receiver/tables/ett_pid.h"

#include <utility>

#include "aiec.h"
#include "receiver/tables/psip_text.h"

namespace atschost {

EttPid::~EttPid() {
  for (const auto& [id, text] : texts_) storage().release(sizeOfText(text.text));
}

const char* EttPid::push(const Section& section) {
  ByteReader in = section.body();
  const uint8_t protocol = in.u8();
  const uint32_t id = in.u32();
  if (in.passedEnd()) return "ETT is too short";
  if (protocol != 0) return "ETT of an unknown protocol version";
  if ((id & 3) != 2) return nullptr;  // the text of a channel

  // Stations do send different texts under one table_id_extension: only ETM_id identifies a text.
  const auto found = texts_.find(id);
  const bool isListed = found != texts_.end();
  if (isListed && found->second.round == round() && found->second.version == section.version) {
    if (found->second.crc != section.crc) return "ETT differs from another of its version";
    note(id, false);
    return nullptr;
  }
  Text text{round(), section.version, section.crc,
            readText(in.data(), in.left(), AIEC_DESCRIPTION_SIZE)};
  const size_t size = sizeOfText(text.text);
  const size_t oldSize = isListed ? sizeOfText(found->second.text) : 0;
  if (!storage().hasRoomFor(size, oldSize)) return GuideStorage::kFull;
  storage().release(oldSize);
  storage().take(size);
  if (!isListed || found->second.text != text.text) storage().noteChange();
  texts_.insert_or_assign(id, std::move(text));
  note(id, true);
  return nullptr;
}

void EttPid::addTo(GuideTables& guide) const {
  if (texts_.empty()) return;
  GuideTables::Texts& texts = guide.etts[instances().front().instance];
  for (const auto& [id, text] : texts_) texts.emplace(id, text.text);
}

void EttPid::sweep() {
  for (auto it = texts_.begin(); it != texts_.end();) {
    if (it->second.round == round()) {
      ++it;
      continue;
    }
    storage().release(sizeOfText(it->second.text));
    it = texts_.erase(it);
  }
  storage().noteChange();
}

}  // namespace atschost
