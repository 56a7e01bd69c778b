// Elements of GStreamer's that are not there, or do not work.

#ifndef TEST_NATIVE_ENGINE_WEBRTC_BROKEN_ELEMENT_H_
#define TEST_NATIVE_ENGINE_WEBRTC_BROKEN_ELEMENT_H_

#include <gst/gst.h>

#include "engine/webrtc/glib.h"

namespace webrtc {

// GStreamer has no such element while this object lives.
class MissingElement {
 public:
  explicit MissingElement(const char* name);
  ~MissingElement();
  MissingElement(const MissingElement&) = delete;
  MissingElement& operator=(const MissingElement&) = delete;

 private:
  const ObjectPtr<GstPluginFeature> feature_;
};

// An element without any pad or property takes the place of one of GStreamer's while this object
// lives.
class BrokenElement {
 public:
  explicit BrokenElement(const char* name);
  ~BrokenElement();
  BrokenElement(const BrokenElement&) = delete;
  BrokenElement& operator=(const BrokenElement&) = delete;

 private:
  const char* const name_;
  const MissingElement working_;
};

}  // namespace webrtc

#endif  // TEST_NATIVE_ENGINE_WEBRTC_BROKEN_ELEMENT_H_
