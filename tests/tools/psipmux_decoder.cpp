#include "psipmux_decoder.h"

#include <cstdlib>
#include <map>
#include <sstream>

extern "C" {
#include <dvbpsi/dvbpsi.h>
// These headers need the one above.
#include <dvbpsi/demux.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/psi.h>
// And these need those.
#include <dvbpsi/atsc_eit.h>
#include <dvbpsi/atsc_ett.h>
#include <dvbpsi/atsc_mgt.h>
#include <dvbpsi/atsc_stt.h>
#include <dvbpsi/atsc_vct.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
}

namespace {

struct Result {
  std::set<std::string> lines;
  std::map<unsigned, unsigned> programs;     // program number, PID of the PMT
  std::map<unsigned, unsigned> guideTables;  // table_type, PID
  unsigned instance = 0;                     // of the guide, being decoded

  template <class... Words>
  void add(const Words&... words) {
    std::ostringstream line;
    (line << ... << words);
    lines.insert(line.str());
  }
};

Result& to(void* data) { return *static_cast<Result*>(data); }

std::string all(const dvbpsi_descriptor_t* each) {
  std::string text;
  for (; each != nullptr; each = each->p_next) {
    text += descriptor(each->i_tag, {each->p_data, each->p_data + each->i_length});
  }
  return text;
}

void onMessage(dvbpsi_t* handle, dvbpsi_msg_level_t, const char* text) {
  to(handle->p_sys).add("complaint: ", text);
}

void onPat(void* data, dvbpsi_pat_t* pat) {
  to(data).add("PAT tsid ", pat->i_ts_id, " version ", +pat->i_version);
  for (const auto* p = pat->p_first_program; p != nullptr; p = p->p_next) {
    to(data).programs[p->i_number] = p->i_pid;
  }
  dvbpsi_pat_delete(pat);
}

void onPmt(void* data, dvbpsi_pmt_t* pmt) {
  Result& result = to(data);
  std::string streams;
  for (const auto* es = pmt->p_first_es; es != nullptr; es = es->p_next) {
    streams += ", " + std::to_string(es->i_type) + " at " + std::to_string(es->i_pid) +
               all(es->p_first_descriptor);
  }
  result.add("PMT ", pmt->i_program_number, " at ", result.programs[pmt->i_program_number],
             " version ", +pmt->i_version, all(pmt->p_first_descriptor), " PCR ", pmt->i_pcr_pid,
             streams);
  dvbpsi_pmt_delete(pmt);
}

void onMgt(void* data, dvbpsi_atsc_mgt_t* mgt) {
  for (const auto* t = mgt->p_first_table; t != nullptr; t = t->p_next) {
    if (t->i_table_type >= 0x100 && t->i_table_type < 0x280) {
      to(data).guideTables[t->i_table_type] = t->i_table_type_pid;
    }
    to(data).add("MGT version ", +mgt->i_version, " type ", t->i_table_type, " at ",
                 t->i_table_type_pid, " version ", +t->i_table_type_version, " bytes ",
                 t->i_number_bytes);
  }
  dvbpsi_atsc_DeleteMGT(mgt);
}

void onVct(void* data, dvbpsi_atsc_vct_t* vct) {
  Result& result = to(data);
  result.add(vct->b_cable_vct ? "CVCT" : "TVCT", " tsid ", vct->i_extension, " version ",
             +vct->i_version);
  for (const auto* c = vct->p_first_channel; c != nullptr; c = c->p_next) {
    result.add("channel ", c->i_major_number, "-", c->i_minor_number,
               descriptor(0, {c->i_short_name, c->i_short_name + 14}), " modulation ",
               +c->i_modulation, " tsid ", c->i_channel_tsid, " program ", c->i_program_number,
               " hidden ", c->b_hidden, c->b_hide_guide, " type ", +c->i_service_type, " source ",
               c->i_source_id, all(c->p_first_descriptor));
  }
  dvbpsi_atsc_DeleteVCT(vct);
}

// libdvbpsi only keeps the low byte of daylight_savings.
void onStt(void* data, dvbpsi_atsc_stt_t* stt) {
  to(data).add("STT ", stt->i_system_time, " offset ", +stt->i_gps_utc_offset);
  dvbpsi_atsc_DeleteSTT(stt);
}

void onEit(void* data, dvbpsi_atsc_eit_t* eit) {
  Result& result = to(data);
  for (const auto* e = eit->p_first_event; e != nullptr; e = e->p_next) {
    result.add("EIT ", result.instance, " source ", eit->i_source_id, " version ", +eit->i_version,
               " event ", e->i_event_id, " at ", e->i_start_time, " for ", e->i_length_seconds,
               " etm ", +e->i_etm_location,
               descriptor(0, {e->i_title, e->i_title + e->i_title_length}),
               all(e->p_first_descriptor));
  }
  dvbpsi_atsc_DeleteEIT(eit);
}

void onEtt(void* data, dvbpsi_atsc_ett_t* ett) {
  Result& result = to(data);
  result.add("ETT ", result.instance, " source ", ett->i_etm_id >> 16, " version ", +ett->i_version,
             " event ", ett->i_etm_id >> 2 & 0x3FFF, " kind ", ett->i_etm_id & 3,
             descriptor(0, {ett->p_etm_data, ett->p_etm_data + ett->i_etm_length}));
  dvbpsi_atsc_DeleteETT(ett);
}

void onNewTable(dvbpsi_t* handle, uint8_t id, uint16_t extension, void* data) {
  if (id == 0xC7) dvbpsi_atsc_AttachMGT(handle, id, extension, onMgt, data);
  if (id == 0xC8 || id == 0xC9) dvbpsi_atsc_AttachVCT(handle, id, extension, onVct, data);
  if (id == 0xCB) dvbpsi_atsc_AttachEIT(handle, id, extension, onEit, data);
  if (id == 0xCC) dvbpsi_atsc_AttachETT(handle, id, extension, onEtt, data);
  if (id == 0xCD) dvbpsi_atsc_AttachSTT(handle, id, extension, onStt, data);
}

template <class Attach>
void decodePid(Result& result, const std::vector<uint8_t>& stream, unsigned pid,
               const Attach& attach, void (*detach)(dvbpsi_t*)) {
  dvbpsi_t* const handle = dvbpsi_new(onMessage, DVBPSI_MSG_WARN);
  if (handle == nullptr) std::abort();
  handle->p_sys = &result;
  attach(handle);
  std::vector<uint8_t> packets = stream;  // libdvbpsi takes them as writable
  for (int loop = 0; loop < 2; ++loop) {
    for (size_t i = 0; i + 188 <= packets.size(); i += 188) {
      if (((packets[i + 1] & 0x1Fu) << 8 | packets[i + 2]) == pid) {
        dvbpsi_packet_push(handle, &packets[i]);
      }
    }
  }
  detach(handle);
  dvbpsi_delete(handle);
}

}  // namespace

std::string descriptor(unsigned tag, const std::vector<uint8_t>& body) {
  std::ostringstream text;
  text << " [" << std::hex << tag << ":";
  for (const uint8_t byte : body) text << ' ' << +byte;
  text << ']';
  return text.str();
}

std::set<std::string> decode(const std::vector<uint8_t>& stream) {
  Result result;
  const auto pat = [&](dvbpsi_t* handle) { dvbpsi_pat_attach(handle, onPat, &result); };
  decodePid(result, stream, 0, pat, dvbpsi_pat_detach);
  for (const auto& each : result.programs) {
    const auto pmt = [&](dvbpsi_t* handle) {
      dvbpsi_pmt_attach(handle, static_cast<uint16_t>(each.first), onPmt, &result);
    };
    decodePid(result, stream, each.second, pmt, dvbpsi_pmt_detach);
  }
  const auto psip = [&](dvbpsi_t* handle) { dvbpsi_AttachDemux(handle, onNewTable, &result); };
  decodePid(result, stream, 0x1FFB, psip, dvbpsi_DetachDemux);
  for (const auto& [type, pid] : result.guideTables) {
    result.instance = type & 0x7F;
    decodePid(result, stream, pid, psip, dvbpsi_DetachDemux);
  }
  return result.lines;
}
