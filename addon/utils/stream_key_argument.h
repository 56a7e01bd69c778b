// Stream keys as JavaScript names them.

#ifndef ADDON_UTILS_STREAM_KEY_ARGUMENT_H_
#define ADDON_UTILS_STREAM_KEY_ARGUMENT_H_

#include <napi.h>

#include "tesselclient/types.h"

namespace Utils {

// Reads argument 0, an object { type: 'local' | 'remote' | 'content', streamIndex: number }.
// Throws the errors of the argument and property readers, where the object is called "streamIndex",
// and an Error "Invalid value for type StreamIndex, expected local|remote|content".
StreamKey getStreamInfo(const Napi::CallbackInfo& info);

}  // namespace Utils

#endif  // ADDON_UTILS_STREAM_KEY_ARGUMENT_H_
