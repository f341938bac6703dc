// Packs what a splitter finds into messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "messages.h"
#include "stream.h"

namespace kelstream {

class Sender : public UnitSink {
 public:
  explicit Sender(Exchange &exchange) : exchange_(exchange) {}

  void OnFormat(const StreamFormat &format) override;
  void OnBytes(const uint8_t *data, size_t size) override;
  void OnUnitEnd(const Unit &unit) override;
  void OnRemark(Severity severity, uint64_t offset, std::string_view text) override;

  // How reading a file ended; nothing comes after it. What was left out is
  // filled in.
  void End(EndOfFile end);

 private:
  void SendFragment(uint32_t flags);

  Exchange &exchange_;
  Message *fragment_ = nullptr;  // being filled
  bool begun_ = false;           // a fragment of the unit was sent
  bool damaged_ = false;
  uint64_t remarks_ = 0;
};

}  // namespace kelstream
