#include "psipmux_decoder.h"

#include <cstdlib>

extern "C" {
#include <dvbpsi/dvbpsi.h>
// These headers need the one above.
#include <dvbpsi/demux.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/psi.h>
// And these need those.
#include <dvbpsi/atsc_mgt.h>
#include <dvbpsi/atsc_stt.h>
#include <dvbpsi/atsc_vct.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
}

namespace {

Decoded& Result(void* data) { return *static_cast<Decoded*>(data); }

Decoded::Descriptors Copy(const dvbpsi_descriptor_t* descriptor) {
  Decoded::Descriptors copy;
  for (; descriptor != nullptr; descriptor = descriptor->p_next) {
    copy.emplace(
        descriptor->i_tag,
        std::vector<uint8_t>(descriptor->p_data, descriptor->p_data + descriptor->i_length));
  }
  return copy;
}

void OnMessage(dvbpsi_t* handle, dvbpsi_msg_level_t, const char* text) {
  Result(handle->p_sys).complaints.emplace_back(text);
}

void OnPat(void* data, dvbpsi_pat_t* pat) {
  Decoded& result = Result(data);
  result.tsid = pat->i_ts_id;
  result.pat_version = pat->i_version;
  for (const auto* p = pat->p_first_program; p != nullptr; p = p->p_next) {
    result.programs[p->i_number] = p->i_pid;
  }
  dvbpsi_pat_delete(pat);
}

void OnPmt(void* data, dvbpsi_pmt_t* pmt) {
  Decoded::Pmt copy;
  copy.version = pmt->i_version;
  copy.pcr_pid = pmt->i_pcr_pid;
  for (const auto* es = pmt->p_first_es; es != nullptr; es = es->p_next) {
    copy.streams.push_back({es->i_type, es->i_pid, Copy(es->p_first_descriptor)});
  }
  Result(data).pmts[pmt->i_program_number] = copy;
  dvbpsi_pmt_delete(pmt);
}

void OnMgt(void* data, dvbpsi_atsc_mgt_t* mgt) {
  Decoded& result = Result(data);
  result.mgt_version = mgt->i_version;
  result.mgt.clear();
  for (const auto* t = mgt->p_first_table; t != nullptr; t = t->p_next) {
    result.mgt.push_back(
        {t->i_table_type, t->i_table_type_pid, t->i_table_type_version, t->i_number_bytes});
  }
  dvbpsi_atsc_DeleteMGT(mgt);
}

void OnVct(void* data, dvbpsi_atsc_vct_t* vct) {
  Decoded& result = Result(data);
  result.has_vct = true;
  result.cable_vct = vct->b_cable_vct;
  result.vct_tsid = vct->i_extension;
  result.vct_version = vct->i_version;
  result.channels.clear();
  for (const auto* c = vct->p_first_channel; c != nullptr; c = c->p_next) {
    Decoded::VirtualChannel copy;
    for (int i = 0; i < 14; i += 2) {
      copy.name.push_back(static_cast<char16_t>(c->i_short_name[i] << 8 | c->i_short_name[i + 1]));
    }
    copy.name.erase(copy.name.find_last_not_of(u'\0') + 1);
    copy.major = c->i_major_number;
    copy.minor = c->i_minor_number;
    copy.modulation = c->i_modulation;
    copy.tsid = c->i_channel_tsid;
    copy.program = c->i_program_number;
    copy.hidden = c->b_hidden;
    copy.hide_guide = c->b_hide_guide;
    copy.service_type = c->i_service_type;
    copy.source_id = c->i_source_id;
    copy.descriptors = Copy(c->p_first_descriptor);
    result.channels.push_back(copy);
  }
  dvbpsi_atsc_DeleteVCT(vct);
}

void OnStt(void* data, dvbpsi_atsc_stt_t* stt) {
  Decoded& result = Result(data);
  result.has_stt = true;
  result.system_time = stt->i_system_time;
  result.gps_utc_offset = stt->i_gps_utc_offset;
  dvbpsi_atsc_DeleteSTT(stt);
}

void OnNewTable(dvbpsi_t* handle, uint8_t table_id, uint16_t extension, void* data) {
  if (table_id == 0xC7) dvbpsi_atsc_AttachMGT(handle, table_id, extension, OnMgt, data);
  if (table_id == 0xC8 || table_id == 0xC9) {
    dvbpsi_atsc_AttachVCT(handle, table_id, extension, OnVct, data);
  }
  if (table_id == 0xCD) dvbpsi_atsc_AttachSTT(handle, table_id, extension, OnStt, data);
}

/// A decoder for one PID.
class Decoder {
 public:
  Decoder(Decoded& result, void (*detach)(dvbpsi_t*))
      : handle_(dvbpsi_new(OnMessage, DVBPSI_MSG_WARN)), detach_(detach) {
    if (handle_ == nullptr) std::abort();
    handle_->p_sys = &result;
  }
  ~Decoder() {
    detach_(handle_);
    dvbpsi_delete(handle_);
  }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  dvbpsi_t* Handle() { return handle_; }

  void DecodeLooped(std::vector<uint8_t> stream, unsigned pid) {
    for (int loop = 0; loop < 2; ++loop) {
      for (size_t i = 0; i + 188 <= stream.size(); i += 188) {
        const unsigned packet_pid = (stream[i + 1] & 0x1Fu) << 8 | stream[i + 2];
        if (packet_pid == pid) dvbpsi_packet_push(handle_, &stream[i]);
      }
    }
  }

 private:
  dvbpsi_t* handle_;
  void (*detach_)(dvbpsi_t*);
};

}  // namespace

Decoded DecodeLooped(const std::vector<uint8_t>& stream) {
  Decoded result;
  {
    Decoder pat(result, dvbpsi_pat_detach);
    dvbpsi_pat_attach(pat.Handle(), OnPat, &result);
    pat.DecodeLooped(stream, 0);
  }
  for (const auto& [program, pid] : result.programs) {
    Decoder pmt(result, dvbpsi_pmt_detach);
    dvbpsi_pmt_attach(pmt.Handle(), static_cast<uint16_t>(program), OnPmt, &result);
    pmt.DecodeLooped(stream, pid);
  }
  Decoder psip(result, dvbpsi_DetachDemux);
  dvbpsi_AttachDemux(psip.Handle(), OnNewTable, &result);
  psip.DecodeLooped(stream, 0x1FFB);
  return result;
}
