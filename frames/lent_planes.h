// Frame memory that JavaScript sees without owning it.

#ifndef FRAMES_LENT_PLANES_H_
#define FRAMES_LENT_PLANES_H_

#include <napi.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>

#include "tesselclient/types.h"
#include "tesselclient/video_frame.h"

// The array buffers that one owner of frame memory has lent to JavaScript, one set of three (Y, U,
// V) for each stream. They lie over the frame's own memory, no pixel is copied. Before the memory
// stops being valid the owner takes them back: the buffers are detached, so that typed arrays over
// them have length 0 instead of reading freed memory, and the collector no longer counts their
// bytes. (External buffers that are left to the collector cost more than a copy would: it runs once
// for every few frames.)
//
// On a host that refuses external buffers the planes are copied once into buffers of the host's;
// nothing else differs.
//
// Owned by a TesselWrapper or a TesselWrapperProxy; JavaScript thread only.
class LentPlanes {
 public:
  using Buffers = std::array<napi_value, 3>;  // Y, U, V

  LentPlanes() = default;
  ~LentPlanes() { takeBackAll(); }
  LentPlanes(const LentPlanes&) = delete;
  LentPlanes& operator=(const LentPlanes&) = delete;

  // Buffers over the planes of `frame`, and a share of its memory for as long as they are lent.
  // What is lent for the stream already serves again if it is the same memory, and is taken back
  // otherwise. A null plane is an empty buffer.
  Buffers lend(Napi::Env env, const StreamKey& key, const VideoFrame& frame);

  void takeBack(const StreamKey& key);
  void takeBackAll();

 private:
  struct Loan {
    std::array<VideoPlane, 3> planes;
    std::shared_ptr<QVXCommon::IVideoFrame> memory;
    std::array<Napi::Reference<Napi::ArrayBuffer>, 3> buffers;
  };

  static void takeBack(Loan& loan);

  std::map<StreamKey, Loan> loans_;
};

#endif  // FRAMES_LENT_PLANES_H_
