#include "receiver/tables/psi_decoder.h"

// dvbpsi's headers depend on each other in this order.
// clang-format off
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/psi.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/demux.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/atsc_vct.h>
// clang-format on

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "aisrv.h"
#include "receiver/stream/transport.h"
#include "receiver/tables/descriptors.h"
#include "receiver/tables/section_fault.h"
#include "receiver/tables/table_ids.h"

namespace atschost {
namespace {

constexpr unsigned kMaxMessages = 20;   // of libdvbpsi, for a carrier
constexpr unsigned kMaxSubtables = 16;  // VCTs with different transport_stream_ids
constexpr size_t kMaxPrograms = 1024;   // a 6 MHz channel carries far fewer
constexpr size_t kMaxChannels = 1024;   // of a VCT
// Number of repetitions of a VCT with another transport_stream_id after which the carrier is
// considered to have no VCT of its own.
constexpr unsigned kForeignRepeats = 3;

template <typename Visit>
void forEachDescriptor(const dvbpsi_descriptor_t* descriptor, Visit visit) {
  for (; descriptor; descriptor = descriptor->p_next) visit(*descriptor);
}

// Returns a name up to its first NUL; most names are padded with NULs.
std::string shortName(const uint8_t (&name)[14]) {
  std::string text;
  for (size_t i = 0; i < sizeof(name) && (name[i] || name[i + 1]); i += 2)
    text.append(reinterpret_cast<const char*>(name + i), 2);
  return text;
}

}  // namespace

// libdvbpsi's decoder of one PID. It only gets sections that sectionFault() has passed, and none of
// the packets of the broadcast.
class PsiDecoder::Handle {
 public:
  using Detach = void (*)(dvbpsi_t*);

  Handle(PsiDecoder* owner, Detach detach)
      : handle_(dvbpsi_new(&Handle::message, DVBPSI_MSG_DEBUG)), detach_(detach) {
    if (!handle_) throw std::bad_alloc();
    handle_->p_sys = owner;
  }
  ~Handle() {
    if (handle_->p_decoder) detach_(handle_);
    dvbpsi_delete(handle_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  dvbpsi_t* get() const { return handle_; }

  // Hands a whole section to the decoder, as dvbpsi_packet_push() does with a section that it has
  // collected from packets.
  void push(const Section& section) {
    dvbpsi_decoder_t* const decoder = handle_->p_decoder;
    const auto capacity = static_cast<size_t>(decoder->i_section_max_size);
    if (section.size > capacity) return;
    dvbpsi_psi_section_t* const copy = dvbpsi_NewPSISection(decoder->i_section_max_size);
    if (!copy) throw std::bad_alloc();
    std::copy(section.bytes, section.bytes + section.size, copy->p_data);
    copy->i_table_id = section.tableId;
    copy->b_syntax_indicator = true;
    copy->b_private_indicator = section.bytes[1] & 0x40;
    copy->i_length = static_cast<uint16_t>(section.size - 3);
    copy->i_extension = section.extension;
    copy->i_version = section.version;
    copy->b_current_next = section.current;
    copy->i_number = section.number;
    copy->i_last_number = section.lastNumber;
    copy->p_payload_start = copy->p_data + kSectionHeaderSize;
    copy->p_payload_end = copy->p_data + section.size - kSectionCrcSize;
    copy->i_crc = section.crc;
    decoder->pf_gather(handle_, copy);  // takes the section over
  }

 private:
  static void message(dvbpsi_t* handle, dvbpsi_msg_level_t level, const char* text) {
    auto* owner = static_cast<PsiDecoder*>(handle->p_sys);
    if (!owner || owner->messages_ >= kMaxMessages || level > DVBPSI_MSG_WARN) return;
    ++owner->messages_;
    owner->report(Level::kDebug, "libdvbpsi", text ? text : "");
  }

  dvbpsi_t* handle_;
  Detach detach_;
};

// libdvbpsi calls these functions from within push(). They own the table that they are given, and
// throw nothing, since libdvbpsi is C.
struct PsiDecoder::Callbacks {
  static void pat(void* data, dvbpsi_pat_t* table) try {
    const std::unique_ptr<dvbpsi_pat_t, void (*)(dvbpsi_pat_t*)> owned(table, dvbpsi_pat_delete);
    auto* self = static_cast<PsiDecoder*>(data);
    if (!table->b_current_next || self->tables_.pat) return;
    Pat pat;
    pat.tsid = table->i_ts_id;
    for (const auto* p = table->p_first_program; p; p = p->p_next) {
      if (p->i_number == 0 || (p->i_pid & 0x1FFF) == kNullPid)
        continue;  // program 0 is the network PID
      if (pat.pmtPids.size() == kMaxPrograms) {
        self->fault_ = "PAT has too many programs, only the first 1024 are used";
        break;
      }
      pat.pmtPids.emplace(p->i_number, p->i_pid & 0x1FFF);
    }
    self->tables_.pat = std::move(pat);
  } catch (const std::exception& e) {
    static_cast<PsiDecoder*>(data)->report(Level::kError, "PAT", e.what());
  }

  static void pmt(void* data, dvbpsi_pmt_t* table) try {
    const std::unique_ptr<dvbpsi_pmt_t, void (*)(dvbpsi_pmt_t*)> owned(table, dvbpsi_pmt_delete);
    auto* self = static_cast<PsiDecoder*>(data);
    if (!table->b_current_next) return;
    std::vector<CaptionService> captions;
    const auto takeCaptions = [&](const dvbpsi_descriptor_t& d) {
      if (d.i_tag == kCaptionServiceTag) readCaptionServices(d.p_data, d.i_length, captions);
    };
    forEachDescriptor(table->p_first_descriptor, takeCaptions);
    std::vector<Advisory> advisories;
    std::vector<std::string> texts;  // not used
    forEachDescriptor(table->p_first_descriptor, [&](const dvbpsi_descriptor_t& d) {
      if (d.i_tag == kContentAdvisoryTag)
        readContentAdvisory(d.p_data, d.i_length, texts, advisories);
    });
    std::vector<AISRV_pid_info> streams;
    for (const auto* es = table->p_first_es; es; es = es->p_next) {
      AISRV_pid_info stream{};
      stream.stream_type = es->i_type;
      stream.pid = es->i_pid & 0x1FFF;
      for (const uint8_t tag : {kIso639LanguageTag, kAc3AudioTag}) {
        forEachDescriptor(es->p_first_descriptor, [&](const dvbpsi_descriptor_t& d) {
          if (d.i_tag != tag) return;
          (tag == kAc3AudioTag ? readAc3Audio : readIso639Language)(d.p_data, d.i_length, stream);
        });
      }
      forEachDescriptor(es->p_first_descriptor, takeCaptions);
      addStream(streams, stream);
    }
    if (!captions.empty())
      self->tables_.captions.emplace(table->i_program_number, std::move(captions));
    if (!advisories.empty())
      self->tables_.advisories.emplace(table->i_program_number, std::move(advisories));
    self->tables_.pmts.emplace(table->i_program_number, std::move(streams));
  } catch (const std::exception& e) {
    static_cast<PsiDecoder*>(data)->report(Level::kError, "PMT", e.what());
  }

  static void vct(void* data, dvbpsi_atsc_vct_t* table) try {
    const std::unique_ptr<dvbpsi_atsc_vct_t, void (*)(dvbpsi_atsc_vct_t*)> owned(
        table, dvbpsi_atsc_DeleteVCT);
    auto* self = static_cast<PsiDecoder*>(data);
    if (!table->b_current_next) return;
    if (self->tables_.vct && !(self->tables_.pat && table->i_extension == self->tables_.pat->tsid))
      return;
    Vct vct;
    vct.tsid = table->i_extension;
    for (const auto* c = table->p_first_channel; c; c = c->p_next) {
      if (vct.channels.size() == kMaxChannels) {
        self->fault_ = "VCT has too many channels, only the first 1024 are used";
        break;
      }
      VirtualChannel channel;
      channel.name = shortName(c->i_short_name);
      channel.major = c->i_major_number;
      channel.minor = c->i_minor_number;
      channel.modulationMode = c->i_modulation;
      channel.tsid = c->i_channel_tsid;
      channel.programNumber = c->i_program_number;
      channel.hidden = c->b_hidden;
      channel.outOfBand = table->i_table_id == kCableVctId && c->b_out_of_band;
      channel.serviceType = c->i_service_type;
      channel.sourceId = c->i_source_id;
      forEachDescriptor(c->p_first_descriptor, [&](const dvbpsi_descriptor_t& d) {
        if (d.i_tag != kServiceLocationTag) return;
        channel.hasLocation = true;
        readServiceLocation(d.p_data, d.i_length, channel.streams);
      });
      vct.channels.push_back(std::move(channel));
    }
    self->tables_.vct = std::move(vct);
  } catch (const std::exception& e) {
    static_cast<PsiDecoder*>(data)->report(Level::kError, "VCT", e.what());
  }

  static void subtable(dvbpsi_t* handle, uint8_t tableId, uint16_t extension, void* data) {
    auto* self = static_cast<PsiDecoder*>(data);
    if (tableId != self->vctTableId_) return;
    if (dvbpsi_atsc_AttachVCT(handle, tableId, extension, &Callbacks::vct, self))
      ++self->subtables_;
  }
};

PsiDecoder::PsiDecoder(uint32_t source, MessageSink onMessage)
    : vctTableId_(vctIdOf(source)),
      onMessage_(std::move(onMessage)),
      pat_(std::make_unique<Handle>(this, dvbpsi_pat_detach)) {
  if (!dvbpsi_pat_attach(pat_->get(), &Callbacks::pat, this)) throw std::bad_alloc();
  attachPsip();
  wanted_.set(kPatPid);
  wanted_.set(kPsipBasePid);
}

PsiDecoder::~PsiDecoder() = default;

const char* PsiDecoder::push(const Section& section) {
  const uint16_t pid = section.pid;
  const uint8_t tableId = section.tableId;
  const bool isPat = pid == kPatPid && tableId == kPatId && !tables_.pat;
  const bool isVct = pid == kPsipBasePid && tableId == vctTableId_ && !hasOwnVct();
  const bool isPmt = tables_.pat && tableId == kPmtId && pid != kPatPid && pid != kPsipBasePid;
  if (!isPat && !isVct && !isPmt) return nullptr;
  if (const char* fault = sectionFault(section)) return fault;
  if (!section.current) return nullptr;

  if (isPat) {
    pat_->push(section);
    if (tables_.pat) {
      attachPmts();
      // The carrier's own VCT may have been received before the PAT identified it.
      if (tables_.vct && !hasOwnVct()) attachPsip();
    }
  } else if (isVct) {
    // Tables that were begun are dropped rather than kept in any number.
    if (subtables_ == kMaxSubtables) attachPsip();
    if (tables_.pat && tables_.vct && section.number == 0 && section.extension == tables_.vct->tsid)
      ++vctRepeats_;
    psip_->push(section);
  } else {
    pushPmt(section);
  }
  complete_ = checkComplete();
  return std::exchange(fault_, nullptr);
}

void PsiDecoder::report(Level level, const char* source, const char* text) const {
  if (onMessage_) onMessage_(level, source, text);
}

bool PsiDecoder::hasOwnVct() const {
  return tables_.vct && tables_.pat && tables_.vct->tsid == tables_.pat->tsid;
}

void PsiDecoder::attachPsip() {
  psip_ = std::make_unique<Handle>(this, dvbpsi_DetachDemux);
  if (!dvbpsi_AttachDemux(psip_->get(), &Callbacks::subtable, this)) throw std::bad_alloc();
  subtables_ = 0;
}

void PsiDecoder::pushPmt(const Section& section) {
  const uint16_t program = section.extension;
  const auto awaited = pmts_.find(program);  // several programs may share a PID
  if (awaited == pmts_.end() || tables_.pat->pmtPids.at(program) != section.pid) return;
  awaited->second->push(section);
  if (tables_.pmts.count(program)) pmts_.erase(awaited);
}

void PsiDecoder::attachPmts() {
  for (const auto& [program, pid] : tables_.pat->pmtPids) {
    auto handle = std::make_unique<Handle>(this, dvbpsi_pmt_detach);
    if (!dvbpsi_pmt_attach(handle->get(), program, &Callbacks::pmt, this)) throw std::bad_alloc();
    pmts_.emplace(program, std::move(handle));
    wanted_.set(pid);
  }
}

bool PsiDecoder::checkComplete() const {
  if (!tables_.pat || !tables_.vct) return false;
  if (!hasOwnVct() && vctRepeats_ < kForeignRepeats) return false;
  const auto& channels = tables_.vct->channels;
  return std::none_of(channels.begin(), channels.end(), [this](const VirtualChannel& c) {
    return !c.hidden && pmts_.count(c.programNumber);
  });
}

}  // namespace atschost
