// What is sent and received, as JavaScript describes it.

#ifndef ADDON_WRAPPER_MEDIA_STREAM_STATE_H_
#define ADDON_WRAPPER_MEDIA_STREAM_STATE_H_

#include <napi.h>

#include "tesselclient/records.h"

namespace wrapper {

// Reads a "MediaStreamState". Throws the errors of the property readers.
tsl::MediaStreamState readMediaStreamState(const Napi::CallbackInfo& info, Napi::Value value);

}  // namespace wrapper

#endif  // ADDON_WRAPPER_MEDIA_STREAM_STATE_H_
