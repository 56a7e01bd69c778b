#include "frames/lent_planes.h"

#include <algorithm>

#include "napi/status.h"

namespace {

bool isSameMemory(const VideoPlane& a, const VideoPlane& b) {
  return a.data == b.data && a.size == b.size;
}

napi_value copyOf(napi_env env, const VideoPlane& plane) {
  void* copy = nullptr;
  napi_value buffer = nullptr;
  Utils::checkStatus(env, napi_create_arraybuffer(env, plane.size, &copy, &buffer));
  std::copy_n(plane.data, plane.size, static_cast<std::uint8_t*>(copy));
  return buffer;
}

napi_value bufferOver(napi_env env, const VideoPlane& plane) {
  napi_value buffer = nullptr;
  if (plane.data == nullptr || plane.size == 0) {
    Utils::checkStatus(env, napi_create_arraybuffer(env, 0, nullptr, &buffer));
    return buffer;
  }
  // Node-API has no read-only buffers: JavaScript is trusted not to draw into the engine's frames.
  void* const data = const_cast<std::uint8_t*>(plane.data);
  const napi_status status =
      napi_create_external_arraybuffer(env, data, plane.size, nullptr, nullptr, &buffer);
  if (status == napi_no_external_buffers_allowed) return copyOf(env, plane);
  Utils::checkStatus(env, status);
  return buffer;
}

}  // namespace

LentPlanes::Buffers LentPlanes::lend(Napi::Env env, const StreamKey& key, const VideoFrame& frame) {
  const std::array planes = {frame.yPlane, frame.uPlane, frame.vPlane};
  Loan& loan = loans_[key];
  Buffers buffers = {};
  if (!loan.buffers.back().IsEmpty() &&
      std::equal(planes.begin(), planes.end(), loan.planes.begin(), isSameMemory)) {
    for (std::size_t i = 0; i < buffers.size(); ++i) buffers[i] = loan.buffers[i].Value();
    return buffers;
  }
  takeBack(loan);
  loan.planes = planes;
  loan.memory = frame.frame;
  for (std::size_t i = 0; i < buffers.size(); ++i) {
    buffers[i] = bufferOver(env, planes[i]);
    loan.buffers[i] = Napi::Persistent(Napi::ArrayBuffer(env, buffers[i]));
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

void LentPlanes::takeBack(Loan& loan) {
  for (auto& buffer : loan.buffers) {
    if (buffer.IsEmpty()) continue;
    const Napi::HandleScope scope(buffer.Env());
    // A failure means that JavaScript detached the buffer itself.
    napi_detach_arraybuffer(buffer.Env(), buffer.Value());
    buffer.Reset();
  }
  loan.memory.reset();
}
