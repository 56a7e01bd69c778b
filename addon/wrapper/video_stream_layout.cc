// TesselWrapper: which remote videos are requested, and at which quality.

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"
#include "addon/napi/status.h"
#include "addon/napi/values.h"
#include "addon/utils/video_stream_quality.h"
#include "addon/wrapper/tessel_wrapper.h"
#include "base/diagnostic_line.h"

namespace wrapper {
namespace {

bool hasOwn(Napi::Env env, Napi::Value object, const char* name) {
  bool result = false;
  napi::checkStatus(env,
                    napi_has_own_property(env, object, napi::toJavascript(env, name), &result));
  return result;
}

Napi::Value getProperty(Napi::Env env, Napi::Value object, const char* name) {
  napi_value result = nullptr;
  napi::checkStatus(env, napi_get_named_property(env, object, name, &result));
  return {env, result};
}

// null and undefined, which have no properties, throw as they do for an element of an array.
Napi::Value toObject(Napi::Env env, Napi::Value value) {
  napi_value result = nullptr;
  napi::checkStatus(env, napi_coerce_to_object(env, value, &result));
  return {env, result};
}

// An own property that must be an array.
Napi::Value ownArray(Napi::Env env, Napi::Object object, const char* name, const char* missingText,
                     const char* notAnArrayText) {
  if (!hasOwn(env, object, name)) throw Napi::TypeError::New(env, missingText);
  const Napi::Value value = toObject(env, getProperty(env, object, name));
  if (!value.IsArray()) throw Napi::TypeError::New(env, notAnArrayText);
  return value;
}

tsl::VideoStreamInfo readStreamInfo(const Napi::CallbackInfo& info, Napi::Value value) {
  const napi::NapiObjectPropertyHelper helper(info, value, "");
  // Only the low bits of a number that is too large are kept.
  tsl::VideoStreamInfo stream;
  stream.ssrc = static_cast<std::uint32_t>(helper.getAsInt("ssrc"));
  stream.participantSsrc = static_cast<std::uint32_t>(helper.getAsInt("participantSsrc"));
  stream.speakerGroup = static_cast<std::uint16_t>(helper.getAsInt("speakerGroup"));
  stream.priority = static_cast<std::uint16_t>(helper.getAsInt("priority"));
  return stream;
}

// Absent, inherited and mistyped limits count as not given.
std::uint32_t readLimit(const Napi::CallbackInfo& info, Napi::Value value, const char* name,
                        std::uint32_t (*filter)(std::uint32_t)) {
  const Napi::Env env = info.Env();
  if (!hasOwn(env, value, name) || !getProperty(env, value, name).IsNumber()) return 0;
  const napi::NapiObjectPropertyHelper helper(info, value, "");
  return filter(static_cast<std::uint32_t>(helper.getAsInt(name)));
}

tsl::VideoStreamConstraints readConstraints(const Napi::CallbackInfo& info, Napi::Value value) {
  tsl::VideoStreamConstraints limits;
  limits.maxQuality = readLimit(info, value, "maxquality", Utils::getMappedVideoQuality);
  limits.maxFrameRate = readLimit(info, value, "maxfps", Utils::getMappedVideoFrameRate);
  limits.minQuality = readLimit(info, value, "minquality", Utils::getMappedVideoQuality);
  limits.minFrameRate = readLimit(info, value, "minfps", Utils::getMappedVideoFrameRate);
  return limits;
}

}  // namespace

void TesselWrapper::updateVideoStreamsState(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const napi::NapiObjectPropertyHelper helper(info, napi::napiGetArgAsObject(info, 0),
                                              "VideoStreamState");
  const Napi::Object state = helper.getAsObject("VideoStreamState");

  const Napi::Value infos =
      ownArray(env, state, "VideoStreamInfos", "VideoStreamInfos object missing",
               "VideoStreamInfos object is not an Array");
  base::DiagnosticLine("Found array object inside VideoStreamInfos");
  std::vector<tsl::VideoStreamInfo> streams;
  napi::forEachElement(
      infos, [&](Napi::Value element) { streams.push_back(readStreamInfo(info, element)); });

  const Napi::Value occupancies = ownArray(env, state, "VideoOccupancyConstraints",
                                           "VideoOccupancyConstraints object is missing",
                                           "VideoOccupancyConstraints object is not an array");
  std::vector<std::vector<tsl::VideoStreamConstraints>> constraints;
  napi::forEachElement(occupancies, [&](Napi::Value tiles) {
    if (!tiles.IsArray()) {
      throw Napi::TypeError::New(env, "videoOccupancyConstraintValue object is not an Array");
    }
    auto& limits = constraints.emplace_back();
    napi::forEachElement(tiles,
                         [&](Napi::Value tile) { limits.push_back(readConstraints(info, tile)); });
  });

  manager_->UpdateVideoStreamsState(streams, constraints);
}

}  // namespace wrapper
