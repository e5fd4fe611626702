#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// What libdvbpsi, which shares no code with psipmux, makes of a transport stream.
struct Decoded {
  using Descriptors = std::multimap<uint8_t, std::vector<uint8_t>>;  // tag, body
  struct Stream {
    unsigned type = 0;
    unsigned pid = 0;
    Descriptors descriptors;
  };
  struct Pmt {
    unsigned version = 0;
    unsigned pcr_pid = 0;
    std::vector<Stream> streams;
  };
  struct VirtualChannel {
    std::u16string name;  // without the padding
    unsigned major = 0, minor = 0, modulation = 0, tsid = 0, program = 0;
    bool hidden = false, hide_guide = false;
    unsigned service_type = 0, source_id = 0;
    Descriptors descriptors;
  };
  struct MgtTable {
    unsigned type = 0, pid = 0, version = 0, bytes = 0;
  };

  unsigned tsid = 0;
  unsigned pat_version = 0;
  std::map<unsigned, unsigned> programs;  // program number, PID of the PMT
  std::map<unsigned, Pmt> pmts;           // by program number
  unsigned mgt_version = 0;
  std::vector<MgtTable> mgt;
  bool has_vct = false, cable_vct = false;
  unsigned vct_tsid = 0, vct_version = 0;
  std::vector<VirtualChannel> channels;
  bool has_stt = false;
  uint32_t system_time = 0;
  unsigned gps_utc_offset = 0;          // of daylight_savings libdvbpsi keeps the low byte only
  std::vector<std::string> complaints;  // warnings and errors of the decoder
};

/// Decodes a stream played twice in a row.
Decoded DecodeLooped(const std::vector<uint8_t>& stream);
