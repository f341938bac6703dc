// Packs what a splitter finds into messages.

#include "sender.h"

#include <algorithm>

namespace kelstream {

namespace {

// A thoroughly damaged file is told by its first damages: there may be one for
// every few bytes of it.
constexpr uint64_t kMaxRemarks = 20;

}  // namespace

void Sender::OnFormat(const StreamFormat &format) {
  Message *message = exchange_.TakeEmpty();
  message->word = kFormat;
  message->Put(format);
  exchange_.Send(message);
}

void Sender::OnBytes(const uint8_t *data, size_t size) {
  while (size > 0) {
    if (fragment_ != nullptr && fragment_->size == Message::kCapacity)
      SendFragment(0);
    if (fragment_ == nullptr) {
      fragment_ = exchange_.TakeEmpty();
      fragment_->data = fragment_->bytes;
      fragment_->size = 0;
    }
    const size_t take = std::min<size_t>(size, Message::kCapacity - fragment_->size);
    std::memcpy(fragment_->bytes + fragment_->size, data, take);
    fragment_->size += static_cast<uint32_t>(take);
    data += take;
    size -= take;
  }
}

void Sender::OnUnitEnd(const Unit &unit) {
  if (fragment_ == nullptr) {
    fragment_ = exchange_.TakeEmpty();
    fragment_->data = nullptr;
    fragment_->size = 0;
  }
  fragment_->unit = unit;
  SendFragment(kLastFragment);
  begun_ = false;
}

void Sender::SendFragment(uint32_t flags) {
  fragment_->word = kUnitBytes | flags;
  if (!begun_)
    fragment_->word |= kFirstFragment;
  begun_ = true;
  exchange_.Send(fragment_);
  fragment_ = nullptr;
}

void Sender::OnRemark(Severity severity, uint64_t offset, std::string_view text) {
  damaged_ = damaged_ || severity == Severity::kDamage;
  if (++remarks_ > kMaxRemarks)
    return;
  Message *message = exchange_.TakeEmpty();
  message->word = kRemark;
  message->severity = severity;
  message->offset = offset;
  message->size = static_cast<uint32_t>(std::min<size_t>(text.size(), Message::kCapacity));
  message->data = message->bytes;
  std::copy_n(text.data(), message->size, message->bytes);
  exchange_.Send(message);
}

void Sender::End(EndOfFile end) {
  end.damaged = damaged_;
  end.remarks_left_out = remarks_ - std::min(remarks_, kMaxRemarks);
  // A unit that was not ended, because memory ran out, is given up.
  Message *message = fragment_ != nullptr ? fragment_ : exchange_.TakeEmpty();
  fragment_ = nullptr;
  message->word = kEndOfFile;
  message->Put(end);
  exchange_.Send(message);
  exchange_.Flush();
}

}  // namespace kelstream
