#include "addon/frames/lent_planes.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "addon/napi/status.h"

namespace frames {
namespace {

napi_value copyOf(napi_env env, const VideoPlane& plane) {
  void* copy = nullptr;
  napi_value buffer = nullptr;
  napi::checkStatus(env, napi_create_arraybuffer(env, plane.size, &copy, &buffer));
  std::copy_n(plane.data, plane.size, static_cast<std::uint8_t*>(copy));
  return buffer;
}

// A buffer of the plane's bytes, and whether it lies over the plane's own memory.
std::pair<napi_value, bool> bufferOf(napi_env env, const VideoPlane& plane) {
  napi_value buffer = nullptr;
  if (plane.data == nullptr || plane.size == 0) {
    napi::checkStatus(env, napi_create_arraybuffer(env, 0, nullptr, &buffer));
    return {buffer, false};
  }
  // Node-API has no read-only buffers: JavaScript is trusted not to draw into the engine's frames.
  void* const data = const_cast<std::uint8_t*>(plane.data);
  const napi_status status =
      napi_create_external_arraybuffer(env, data, plane.size, nullptr, nullptr, &buffer);
  if (status == napi_no_external_buffers_allowed) return {copyOf(env, plane), false};
  napi::checkStatus(env, status);
  return {buffer, true};
}

bool isDetached(napi_env env, napi_value buffer) {
  bool result = false;
  napi_is_detached_arraybuffer(env, buffer, &result);
  return result;
}

// Keeps memory until the process ends.
void keepForGood(std::shared_ptr<const void> memory) {
  static auto& kept = *new std::vector<std::shared_ptr<const void>>;
  kept.push_back(std::move(memory));
}

}  // namespace

LentPlanes::Buffers LentPlanes::lend(Napi::Env env, const StreamKey& key, const VideoFrame& frame,
                                     std::shared_ptr<const void> memory) {
  const std::array planes = {frame.yPlane, frame.uPlane, frame.vPlane};
  Loan& loan = loans_[key];
  Buffers buffers = {};
  if (std::equal(planes.begin(), planes.end(), loan.planes.begin(), stillLends)) {
    for (std::size_t i = 0; i < buffers.size(); ++i) buffers[i] = loan.planes[i].buffer.Value();
    return buffers;
  }
  takeBack(loan);
  loan.memory = std::move(memory);
  for (std::size_t i = 0; i < buffers.size(); ++i) {
    const auto [buffer, isOverPlane] = bufferOf(env, planes[i]);
    buffers[i] = buffer;
    loan.planes[i] = {planes[i].data, planes[i].size, isOverPlane,
                      Napi::Persistent(Napi::ArrayBuffer(env, buffer))};
  }
  return buffers;
}

void LentPlanes::takeBack(const StreamKey& key) {
  const auto loan = loans_.find(key);
  if (loan != loans_.end()) takeBack(loan->second);
}

void LentPlanes::takeBackAll() {
  for (auto& [key, loan] : loans_) takeBack(loan);
  loans_.clear();
}

bool LentPlanes::stillLends(const VideoPlane& plane, const LentPlane& lent) {
  return !lent.buffer.IsEmpty() && lent.data == plane.data && lent.size == plane.size &&
         !isDetached(lent.buffer.Env(), lent.buffer.Value());
}

void LentPlanes::takeBack(Loan& loan) {
  bool isOutOfReach = false;
  for (LentPlane& lent : loan.planes) {
    if (lent.buffer.IsEmpty()) continue;
    const Napi::Env env = lent.buffer.Env();
    const Napi::HandleScope scope(env);
    const Napi::ArrayBuffer buffer = lent.buffer.Value();
    const bool isTakenBack =
        !isDetached(env, buffer) && napi_detach_arraybuffer(env, buffer) == napi_ok;
    if (lent.isOverPlane && !isTakenBack) isOutOfReach = true;
    lent.buffer.Reset();
  }
  if (isOutOfReach) keepForGood(std::move(loan.memory));
  loan.memory.reset();
}

}  // namespace frames
