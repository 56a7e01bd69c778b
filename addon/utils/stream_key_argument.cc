#include "addon/utils/stream_key_argument.h"

#include <string>

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"

namespace Utils {
namespace {

TSLM_STREAM_INDEX kindOf(Napi::Env env, const std::string& type) {
  if (type == "local") return TSLM_STREAM_LOCAL;
  if (type == "remote") return TSLM_STREAM_REMOTE;
  if (type == "content") return TSLM_STREAM_CONTENT;
  throw Napi::Error::New(env, "Invalid value for type StreamIndex, expected local|remote|content");
}

}  // namespace

StreamKey getStreamInfo(const Napi::CallbackInfo& info) {
  const napi::NapiObjectPropertyHelper helper(info, napi::napiGetArgAsObject(info, 0),
                                              "streamIndex");
  const TSLM_STREAM_INDEX kind = kindOf(info.Env(), helper.getAsString("type"));
  return {kind, helper.getAsInt("streamIndex")};
}

}  // namespace Utils
