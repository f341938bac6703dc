// Follows the pictures of an H.264 stream: where one ends and the next begins,
// which fields make a frame, and whether reference pictures are missing.
#pragma once

#include <cstdint>
#include <optional>

#include "h264_syntax.h"
#include "stream.h"

namespace kelstream::h264 {

// True when two slices of primary pictures, one after the other, belong to
// different pictures.
bool BeginsPicture(const SliceHeader &previous, const SliceHeader &slice);

class PictureTracker {
 public:
  explicit PictureTracker(UnitSink &sink) : sink_(sink) {}

  struct Context {
    uint64_t offset;         // of the slice
    bool recovery_point;     // an SEI of the access unit says that decoding can start here
    bool slice_lost_before;  // an unreadable slice of the access unit came first
  };
  struct Role {
    bool begins_frame;
    bool key;
  };

  // Takes the first slice of each picture.
  Role OnPicture(const SliceHeader &slice, const Sps &sps, const Pps &pps,
                 const Context &context);

  // Something unreadable may have been a picture: the numbering is unknown.
  void OnLoss();

  bool any() const { return any_; }

 private:
  struct Field {
    uint32_t frame_num;
    bool bottom;
    bool idr;
    uint32_t idr_pic_id;
  };

  void CheckStart(const SliceHeader &slice, const Context &context);
  void CheckSize(const Sps &sps, uint64_t offset);
  void CheckFrameNum(const SliceHeader &slice, const Sps &sps, uint64_t offset);
  void CheckFirstSlice(const SliceHeader &slice, const Sps &sps, const Pps &pps,
                       const Context &context);
  bool CompletesFrame(const SliceHeader &slice) const;

  UnitSink &sink_;
  bool any_ = false;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  std::optional<uint32_t> reference_frame_num_;  // of the last reference picture
  std::optional<Field> first_field_;             // waits for the other one
};

}  // namespace kelstream::h264
