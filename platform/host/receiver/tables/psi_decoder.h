// Decodes the tables of which the service list is made: PAT, PMT and VCT.
#ifndef ATSC_HOST_RECEIVER_TABLES_PSI_DECODER_H_
#define ATSC_HOST_RECEIVER_TABLES_PSI_DECODER_H_

#include <bitset>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "aisrv.h"
#include "receiver/tables/caption_services.h"
#include "receiver/tables/content_advisory.h"

namespace atschost {

// A virtual channel as its table says (A/65 tables 6.4 and 6.7).
struct VirtualChannel {
  std::string name;  // UTF-16BE
  uint16_t major = 0;
  uint16_t minor = 0;
  uint8_t modulationMode = 0;
  uint16_t tsid = 0;
  uint16_t programNumber = 0;
  bool hidden = false;
  bool outOfBand = false;
  uint8_t serviceType = 0;
  uint16_t sourceId = 0;
  bool hasLocation = false;  // carries a service location descriptor
  std::vector<AISRV_pid_info> streams;
};

struct Vct {
  uint16_t tsid = 0;
  std::vector<VirtualChannel> channels;
};

struct Pat {
  uint16_t tsid = 0;
  std::map<uint16_t, uint16_t> pmtPids;  // by program number
};

struct CarrierTables {
  std::optional<Pat> pat;
  std::optional<Vct> vct;
  std::map<uint16_t, std::vector<AISRV_pid_info>> pmts;  // by program number
  // Of the PMTs that announce some, by program number.
  std::map<uint16_t, std::vector<CaptionService>> captions;
  // Of the PMTs that carry some, by program number.
  std::map<uint16_t, std::vector<Advisory>> advisories;
};

// Fed with the sections of one carrier; the first whole current version of each table counts. Of
// several VCTs the one with the PAT's transport_stream_id counts, else the first. One thread.
class PsiDecoder {
 public:
  // `source` decides whether the terrestrial or the cable VCT counts.
  explicit PsiDecoder(uint32_t source);
  ~PsiDecoder();

  // Whether sections of a PID (13 bits) are to be pushed.
  bool wants(uint16_t pid) const { return wanted_[pid]; }

  // `section` is as long as its section_length says. Returns null, or the fault for which it, or
  // the end of its table, was dropped.
  const char* push(uint16_t pid, const uint8_t* section, size_t size);

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

  void pushPmt(uint16_t pid, const uint8_t* section, size_t size);
  void attachPsip();
  void attachPmts();
  bool checkComplete() const;

  const uint8_t vctTableId_;
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
