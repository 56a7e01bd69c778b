// Frame memory that JavaScript sees without owning it.

#ifndef ADDON_FRAMES_LENT_PLANES_H_
#define ADDON_FRAMES_LENT_PLANES_H_

#include <napi.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>

#include "tesselclient/types.h"
#include "tesselclient/video_frame.h"

namespace frames {

// The array buffers that one owner of frame memory has lent to JavaScript, one set of three (Y, U,
// V) for each stream. They lie over the frame's own memory, no pixel is copied. Before the memory
// stops being valid the owner takes them back: the buffers are detached, so that typed arrays over
// them have length 0 instead of reading freed memory, and the collector no longer counts their
// bytes. (External buffers that are left to the collector cost more than a copy would: it runs once
// for every few frames.)
//
// JavaScript can put a buffer out of the owner's reach: by moving its memory into another buffer
// (ArrayBuffer.prototype.transfer), or by making it the heap of an asm.js module. The memory of
// such a frame is then never freed.
//
// On a host that refuses external buffers the planes are copied once into buffers of the host's;
// nothing else differs.
//
// Owned by a TesselWrapper or a TesselWrapperProxy; JavaScript thread only.
class LentPlanes {
 public:
  using Buffers = std::array<napi_value, 3>;  // Y, U, V

  LentPlanes() = default;
  // NOLINTNEXTLINE(bugprone-exception-escape): Node-API does not refuse to give a reference up
  ~LentPlanes() { takeBackAll(); }
  LentPlanes(const LentPlanes&) = delete;
  LentPlanes& operator=(const LentPlanes&) = delete;

  // Buffers over the planes of `frame`, and a share of what owns their memory for as long as they
  // are lent. The stream's current buffers are reused when they lie over the same memory and
  // JavaScript has not detached them; otherwise they are taken back. A null plane is an empty
  // buffer.
  Buffers lend(Napi::Env env, const StreamKey& key, const VideoFrame& frame,
               std::shared_ptr<const void> memory);

  void takeBack(const StreamKey& key);
  void takeBackAll();

 private:
  // NOLINTNEXTLINE(bugprone-exception-escape): as above
  struct LentPlane {
    const std::uint8_t* data = nullptr;
    std::uint32_t size = 0;
    bool isOverPlane = false;                     // not empty, and no copy
    Napi::Reference<Napi::ArrayBuffer> buffer{};  // empty once taken back
  };
  struct Loan {
    std::array<LentPlane, 3> planes;  // Y, U, V
    std::shared_ptr<const void> memory;
  };

  // Whether `lent` is a buffer over `plane` that JavaScript has not detached.
  static bool stillLends(const VideoPlane& plane, const LentPlane& lent);
  static void takeBack(Loan& loan);

  std::map<StreamKey, Loan> loans_;
};

}  // namespace frames

#endif  // ADDON_FRAMES_LENT_PLANES_H_
