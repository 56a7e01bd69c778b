// Frames whose pixels GStreamer holds.

#ifndef ENGINE_WEBRTC_GST_FRAME_H_
#define ENGINE_WEBRTC_GST_FRAME_H_

#include <gst/gst.h>

#include <memory>

#include "engine/support/streams/frame_pool.h"

namespace webrtc {

// The I420 picture of a sample as a frame, without its number: over GStreamer's own memory where
// its rows are tightly packed and its planes follow one another, as a copy in a frame of the pool
// where they are not. Empty when the sample has no such picture.
std::shared_ptr<support::Frame> frameOf(GstSample* sample, support::FramePool& pool);
// The same, always as a copy: nothing of the sample is kept.
std::shared_ptr<support::Frame> copiedFrameOf(GstSample* sample, support::FramePool& pool);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_GST_FRAME_H_
