// The whole interface of the engine library, libtesselclient.

#ifndef TESSELCLIENT_TESSELCLIENT_H_
#define TESSELCLIENT_TESSELCLIENT_H_

#include "tesselclient/notify_callback.h"
#include "tesselclient/records.h"
#include "tesselclient/tslm_manager.h"
#include "tesselclient/types.h"
#include "tesselclient/video_frame.h"

#endif  // TESSELCLIENT_TESSELCLIENT_H_
