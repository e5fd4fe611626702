// Decodes the tables of which the service list is made: PAT, PMT and VCT.
#ifndef ATSC_HOST_RECEIVER_TABLES_PSI_DECODER_H_
#define ATSC_HOST_RECEIVER_TABLES_PSI_DECODER_H_

#include <bitset>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "receiver/stream/section.h"
#include "receiver/tables/carrier_tables.h"

namespace atschost {

// Fed with the sections of one carrier; the first whole current version of each table counts. Of
// several VCTs the one with the PAT's transport_stream_id counts, else the first. One thread.
class PsiDecoder {
 public:
  enum class Level { kDebug, kError };
  // Receives a line for the log, from within push(). `source` names the table or libdvbpsi.
  using MessageSink = std::function<void(Level level, const char* source, const char* text)>;

  // `source` (AI_INPUT_*) selects the terrestrial or the cable VCT. Without `onMessage` messages
  // are dropped.
  explicit PsiDecoder(uint32_t source, MessageSink onMessage = {});
  ~PsiDecoder();

  // Whether sections of a PID (13 bits) are to be pushed.
  bool wants(uint16_t pid) const { return wanted_[pid]; }

  // Takes a section; ignores other tables. Returns null, or the fault for which the section or the
  // end of its table was dropped.
  const char* push(const Section& section);

  // Whether every table that the services need is there.
  bool complete() const { return complete_; }
  // Whether the VCT is that of the PAT's transport stream.
  bool hasOwnVct() const;
  // Whether a PMT that the PAT lists is not.
  bool awaitsPmts() const { return !pmts_.empty(); }
  // Whether reading the same stream again may find more: what came before the PAT.
  bool missedSome() const { return tables_.pat && (awaitsPmts() || !hasOwnVct()); }
  const CarrierTables& tables() const { return tables_; }

 private:
  class Handle;
  struct Callbacks;

  void pushPmt(const Section& section);
  void attachPsip();
  void attachPmts();
  bool checkComplete() const;

  void report(Level level, const char* source, const char* text) const;

  const uint8_t vctTableId_;
  const MessageSink onMessage_;
  CarrierTables tables_;
  bool complete_ = false;
  std::bitset<0x2000> wanted_;
  unsigned messages_ = 0;
  const char* fault_ = nullptr;  // of the table that was just taken
  unsigned subtables_ = 0;
  unsigned vctRepeats_ = 0;  // of the VCT in use, since the PAT is there
  std::unique_ptr<Handle> pat_;
  std::unique_ptr<Handle> psip_;
  std::map<uint16_t, std::unique_ptr<Handle>> pmts_;  // awaited, by program number
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_PSI_DECODER_H_
