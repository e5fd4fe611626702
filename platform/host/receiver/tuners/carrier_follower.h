// Follows the changes of the tables of which services are made: PAT, PMT and VCT.
#ifndef ATSC_HOST_RECEIVER_TUNERS_CARRIER_FOLLOWER_H_
#define ATSC_HOST_RECEIVER_TUNERS_CARRIER_FOLLOWER_H_

#include <cstdint>
#include <map>
#include <memory>
#include <tuple>

#include "receiver/tables/psi_decoder.h"
#include "receiver/tuners/stream_reader.h"

namespace atschost {

// PsiDecoder takes the first version of each table. This class makes a new decoder when a table
// changes. One thread.
class CarrierFollower {
 public:
  // What the tables received so far say about the services.
  enum Level {
    kNothing,   // nothing for sure: tables may be missing
    kSettled,   // all that the stream has: it was read often or long enough
    kComplete,  // all that the services need
  };

  // `source` is AI_INPUT_*.
  explicit CarrierFollower(uint32_t source);

  bool wants(uint16_t pid) const { return decoder_->wants(pid); }
  // Takes a section that was received at a position. Returns null, or the fault for which the
  // section was dropped.
  const char* push(const Section& section, StreamPosition position);

  // The present decoder, and its number.
  const PsiDecoder& decoder() const { return *decoder_; }
  unsigned generation() const { return generation_; }

  Level level(StreamPosition position) const;

  // The level at which the tables of the present decoder were used last. After setUsed(), a new
  // section also starts a new decoder, because tables that were used are replaced as a whole.
  Level used() const { return used_; }
  void setUsed(Level level) { used_ = level; }

  // Returns whether any decoder has received a PAT.
  bool hadPat() const { return hadPat_; }

 private:
  // PID, table_id, table_id_extension, section_number.
  using SectionKey = std::tuple<uint16_t, uint8_t, uint16_t, uint8_t>;

  bool isOurs(const Section& section) const;
  void restart(StreamPosition position);

  const uint32_t source_;
  std::unique_ptr<PsiDecoder> decoder_;
  unsigned generation_ = 0;
  StreamPosition start_;                     // of the decoder
  std::map<SectionKey, uint32_t> sections_;  // CRC_32 of the sections received
  Level used_ = kNothing;
  bool hadPat_ = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_CARRIER_FOLLOWER_H_
