// How calls end, or never begin.

#ifndef ENGINE_WEBRTC_CALL_END_H_
#define ENGINE_WEBRTC_CALL_END_H_

#include <stdexcept>
#include <string>

namespace webrtc {

// As the application is told.
enum CallCode : int {
  kLeft = 0,
  kBadUri = 400,
  kWrongPin = 401,
  kNotAllowed = 403,
  kNoSuchRoom = 404,
  kClipUnreadable = 404,
  kTimedOut = 408,
  kRemoved = 410,
  kClipUnsupported = 415,
  kRoomFull = 480,
  kAlreadyInACall = 486,
  kCertificateRefused = 495,
  kEngineFailed = 500,
  kNotAnSfu = 502,
  kUnreachable = 503,
  kNoMediaPath = 504,
};

// Why a call cannot be joined or does not go on. The reason holds no secrets.
class CallFailure : public std::runtime_error {
 public:
  CallFailure(int code, const std::string& reason) : std::runtime_error(reason), code_(code) {}
  int code() const { return code_; }

 private:
  int code_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_CALL_END_H_
