// The content that somebody shows to everybody.

#ifndef ENGINE_EMBEDDED_MEETING_CONTENT_SHARE_H_
#define ENGINE_EMBEDDED_MEETING_CONTENT_SHARE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "engine/embedded/meeting/meeting_plan.h"
#include "engine/embedded/streams/sent_stream.h"
#include "engine/support/log.h"
#include "engine/support/notifier.h"
#include "engine/support/published.h"
#include "tesselclient/records.h"

namespace embedded {

// The meeting's content-share token and the content stream. Whoever holds the token may show
// content: one at a time, the local participant or a remote one. Owned by the meeting, which
// outlives it with its plan; belongs to the engine's thread.
class ContentShare {
 public:
  // `monitors` are those that may be shared.
  ContentShare(const StreamMaker& streams, support::Notifier& notifier,
               std::shared_ptr<const support::Log> log,
               const support::Published<std::vector<tsl::ScreenMonitor>>& monitors,
               const MeetingPlan& plan, bool isReceiving);
  ContentShare(const ContentShare&) = delete;
  ContentShare& operator=(const ContentShare&) = delete;

  // For the local participant. Outcomes are notified.
  void requestToken();
  void releaseToken();
  void start(const tsl::ContentShareParams& params);
  void stop();

  // A participant who presents while somebody else holds the token is not seen.
  void present(int participant, bool isCut);
  void stopPresenting(int participant);
  // Whether the link of the participant carries nothing.
  void setCut(int participant, bool isCut);
  // Whether remote content is received.
  void setReceiving(bool isReceiving);

  // The call ends, and with it all sharing.
  void end();

  // Whether this participant, or kLocalParticipant, shows content.
  bool isPresenting(int participant) const { return holder_ == participant && stream_; }

  // Null while no content is sent, or received.
  TrafficMeter* sentMeter() {
    return holder_ == kLocalParticipant && stream_ ? &stream_->meter() : nullptr;
  }
  TrafficMeter* receivedMeter() { return isReceived_ ? &stream_->meter() : nullptr; }

 private:
  void addStream(LossyLink link);
  void removeStream();
  // Starts or stops the remote content as it is received or not; says whether that changed.
  bool updateReception();
  void report(ShareStatus status);

  const StreamMaker& streams_;
  support::Notifier& notifier_;
  const std::shared_ptr<const support::Log> log_;
  const support::Published<std::vector<tsl::ScreenMonitor>>& monitors_;
  const MeetingPlan& plan_;
  std::optional<int> holder_;           // of the token: a participant or kLocalParticipant
  std::unique_ptr<SentStream> stream_;  // while there is content
  bool isReceiving_;
  bool isCut_ = false;       // the presenting participant is
  bool isReceived_ = false;  // remote content is being sent
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_MEETING_CONTENT_SHARE_H_
