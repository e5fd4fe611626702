// Decodes the tables of which services are made: PAT, PMT and VCT.
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

// Takes the sections of one carrier. The first whole current version of each table counts. Of
// several VCTs the VCT with the PAT's transport_stream_id counts; without such a VCT the first. One
// thread.
class PsiDecoder {
 public:
  enum class Level { kDebug, kError };
  // Receives a line for the log, from within push(). `source` names the table or libdvbpsi.
  using MessageSink = std::function<void(Level level, const char* source, const char* text)>;

  // `source` (AI_INPUT_*) selects the terrestrial or the cable VCT. Without `onMessage` messages
  // are dropped.
  explicit PsiDecoder(uint32_t source, MessageSink onMessage = {});
  ~PsiDecoder();

  // Returns whether push() uses sections of a PID (13 bits). The PAT adds PIDs.
  bool wants(uint16_t pid) const { return wanted_[pid]; }

  // Takes a section; ignores other tables. Returns null, or the fault for which the section or the
  // end of its table was dropped.
  const char* push(const Section& section);

  // Returns whether every table that the services need was received.
  bool complete() const { return complete_; }
  // Returns whether the VCT is of the PAT's transport stream.
  bool hasOwnVct() const;
  // Returns whether a PMT that the PAT lists was not received.
  bool awaitsPmts() const { return !pmts_.empty(); }
  // Returns whether reading the same stream again may find tables: those that came before the PAT.
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
  const char* fault_ = nullptr;  // of the table that the last section completed
  unsigned subtables_ = 0;       // VCTs that psip_ has begun
  unsigned vctRepeats_ = 0;      // of the VCT in use, since the PAT was received
  std::unique_ptr<Handle> pat_;
  std::unique_ptr<Handle> psip_;
  std::map<uint16_t, std::unique_ptr<Handle>> pmts_;  // not received yet, by program number
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_PSI_DECODER_H_
