// Follows the pictures of an H.264 stream.

#include "h264_pictures.h"

#include <string>

namespace kelstream::h264 {

bool BeginsPicture(const SliceHeader &previous, const SliceHeader &slice) {
  // Fields that a stream does not have are 0 on both sides.
  return slice.frame_num != previous.frame_num || slice.pps_id != previous.pps_id ||
         slice.field != previous.field || slice.bottom != previous.bottom ||
         (slice.nal_ref_idc == 0) != (previous.nal_ref_idc == 0) || slice.idr != previous.idr ||
         slice.idr_pic_id != previous.idr_pic_id || slice.poc_lsb != previous.poc_lsb ||
         slice.delta_poc_bottom != previous.delta_poc_bottom ||
         slice.delta_poc[0] != previous.delta_poc[0] ||
         slice.delta_poc[1] != previous.delta_poc[1];
}

void PictureTracker::CheckStart(const SliceHeader &slice, const Context &context) {
  // Streams cut at a picture without references can be decoded well enough.
  if (!any_ && !slice.Intra() && !context.recovery_point)
    sink_.OnRemark(Severity::kDamage, context.offset,
                   "decoding cannot start here: neither an I slice nor a recovery point");
}

void PictureTracker::CheckSize(const Sps &sps, uint64_t offset) {
  if (any_ && (sps.width != width_ || sps.height != height_))
    sink_.OnRemark(Severity::kNote, offset,
                   "the picture size changes from " + std::to_string(width_) + "x" +
                       std::to_string(height_) + " to " + std::to_string(sps.width) + "x" +
                       std::to_string(sps.height));
  width_ = sps.width;
  height_ = sps.height;
}

// frame_num counts reference pictures: each picture's follows that of the last
// reference picture, or repeats it in the second field of the same frame.
void PictureTracker::CheckFrameNum(const SliceHeader &slice, const Sps &sps, uint64_t offset) {
  const uint32_t mask = (uint32_t{1} << sps.frame_num_bits) - 1;
  const bool follows = slice.idr || !reference_frame_num_ ||
                       slice.frame_num == *reference_frame_num_ ||
                       slice.frame_num == ((*reference_frame_num_ + 1) & mask);
  if (!follows && !sps.frame_num_gaps_allowed)
    sink_.OnRemark(Severity::kDamage, offset,
                   "reference pictures are missing: frame_num goes from " +
                       std::to_string(*reference_frame_num_) + " to " +
                       std::to_string(slice.frame_num));
  if (slice.nal_ref_idc != 0)
    reference_frame_num_ = slice.mmco5 ? 0 : slice.frame_num;
  else if (!follows || !reference_frame_num_)
    reference_frame_num_ = (slice.frame_num - 1) & mask;
}

void PictureTracker::CheckFirstSlice(const SliceHeader &slice, const Sps &sps, const Pps &pps,
                                     const Context &context) {
  const bool any_order =
      sps.MayReorderSlices() || pps.num_slice_groups > 1 || pps.redundant_pic_cnt_present;
  if (slice.first_mb != 0 && !any_order && !context.slice_lost_before)
    sink_.OnRemark(Severity::kDamage, context.offset,
                   "slices are missing: the picture begins at macroblock " +
                       std::to_string(slice.first_mb));
}

bool PictureTracker::CompletesFrame(const SliceHeader &slice) const {
  if (!first_field_ || !slice.field || slice.bottom == first_field_->bottom ||
      slice.frame_num != first_field_->frame_num)
    return false;
  // An IDR picture begins a frame; only its own second field may be IDR, too.
  return !slice.idr || (first_field_->idr && slice.idr_pic_id == first_field_->idr_pic_id);
}

PictureTracker::Role PictureTracker::OnPicture(const SliceHeader &slice, const Sps &sps,
                                               const Pps &pps, const Context &context) {
  CheckStart(slice, context);
  CheckSize(sps, context.offset);
  CheckFrameNum(slice, sps, context.offset);
  CheckFirstSlice(slice, sps, pps, context);
  any_ = true;

  const bool second_field = CompletesFrame(slice);
  first_field_.reset();
  if (slice.field && !second_field)
    first_field_ =
        Field{slice.mmco5 ? 0 : slice.frame_num, slice.bottom, slice.idr, slice.idr_pic_id};
  return {!second_field, !second_field && slice.idr};
}

void PictureTracker::OnLoss() {
  reference_frame_num_.reset();
  first_field_.reset();
}

}  // namespace kelstream::h264
