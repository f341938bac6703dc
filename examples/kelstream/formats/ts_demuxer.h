// Takes an MPEG transport stream apart: packets, tables, streams.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ts_packet.h"
#include "ts_stream.h"
#include "ts_tables.h"

namespace kelstream::ts {

class TsDemuxer : private SectionAssembler::Handler {
 public:
  // `offset` is that of the first byte taken, for what is reported.
  TsDemuxer(StreamSink &sink, uint64_t offset);

  // Looks for the tables in the first bytes of the file. A file that was cut
  // out of a longer one has them late, and what comes before them counts, too.
  void Survey(const uint8_t *data, size_t size, bool whole);

  // Takes the file's next bytes, or as many of them as can be judged; returns
  // how many. The rest comes again, with more behind it, unless `whole`: then
  // that is all there is.
  size_t Take(const uint8_t *data, size_t size, bool whole);
  void Finish();

 private:
  struct Pid {
    std::optional<uint32_t> counter;  // of the last packet with a payload
    bool duplicate = false;           // that packet came twice
    bool scrambled = false;           // it was told
    bool type_changed = false;        // it was told
    std::unique_ptr<SectionAssembler> sections;
    TsStream *stream = nullptr;
  };

  void OnSection(const std::vector<uint8_t> &section, bool intact) override;
  void AddProgram(const Program &program);
  void AddStream(const MapEntry &entry);
  void ReadTable(const Packet &packet);
  void OnPacket(const uint8_t *data);
  bool Follows(Pid &pid, const Packet &packet);
  void EndSearch(bool found);
  void Damage(uint64_t offset, const std::string &text) {
    sink_.OnRemark(Severity::kDamage, offset, text);
  }

  StreamSink &sink_;
  uint64_t offset_;  // of the next byte taken
  std::array<std::unique_ptr<Pid>, kPids> pids_;
  std::vector<std::unique_ptr<TsStream>> streams_;

  bool surveying_ = false;
  uint32_t table_pid_ = 0;  // whose section is read
  bool any_ = false;        // a packet was seen
  bool searching_ = false;
  uint64_t lost_at_ = 0;
};

}  // namespace kelstream::ts
