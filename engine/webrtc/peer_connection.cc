#include "engine/webrtc/peer_connection.h"

#include <gst/rtp/gstrtcpbuffer.h>

#include <algorithm>
#include <latch>
#include <string_view>
#include <utility>

#include "engine/webrtc/feed.h"
#include "engine/webrtc/feedback.h"

namespace webrtc {
namespace {

using DescriptionPtr =
    std::unique_ptr<GstWebRTCSessionDescription, ReleasedBy<gst_webrtc_session_description_free>>;

// Covers the pacing of a browser that spreads a key frame, and one repetition of a lost packet.
constexpr guint kJitterBufferMs = 200;
// The mixer waits a little longer: what follows a lost packet of audio must not be too late for it.
constexpr guint kAudioJitterBufferMs = 40;
// The first packet is given on at once; the usual wait for a second one delays the first picture.
constexpr guint kFirstPackets = 1;
// Otherwise a request for a packet or a key frame waits for the next report, which may be seconds.
constexpr guint64 kFeedbackInterval = 100 * GST_MSECOND;
// That also holds after each request: the next one waits for as long as the reports, of some
// hundred bytes for each of a handful of sources, need in this share of the connection. In
// GStreamer's own, of a twentieth of 64 kbit/s, these are several seconds, in which a lost picture
// stays lost; in this one a third of a second.
constexpr gdouble kFeedbackBitsPerSecond = 25'000;

GstElement* makeWebrtcBin(GstElement* pipeline, const IceOptions& ice) {
  GstElement* const element = makeElement("webrtcbin", "webrtc");
  g_object_set(element, "bundle-policy", GST_WEBRTC_BUNDLE_POLICY_MAX_BUNDLE, "latency",
               kJitterBufferMs, "ice-transport-policy",
               ice.isRelayForced ? GST_WEBRTC_ICE_TRANSPORT_POLICY_RELAY
                                 : GST_WEBRTC_ICE_TRANSPORT_POLICY_ALL,
               nullptr);
  for (const auto& server : ice.turnServers) {
    gboolean isAdded = FALSE;
    g_signal_emit_by_name(element, "add-turn-server", server.c_str(), &isAdded);
  }
  const ObjectPtr<GObject> gatherer(property<GObject*>(element, "ice-agent"));
  const ObjectPtr<GObject> agent(property<GObject*>(gatherer.get(), "agent"));
  // The server listens on UDP; asking a router for a port takes seconds.
  g_object_set(agent.get(), "ice-tcp", FALSE, "upnp", FALSE, nullptr);
  gst_bin_add(GST_BIN(pipeline), element);
  return element;
}

// The server passes a subscriber's PLI on, but not its FIR, which GStreamer prefers where it is
// offered: without this a lost key frame would never be sent again.
std::string withoutFir(std::string_view sdp) {
  constexpr std::string_view kFir = " ccm fir";
  std::string kept;
  while (!sdp.empty()) {
    const std::size_t end = std::min(sdp.find('\n'), sdp.size() - 1) + 1;
    const std::string_view line = sdp.substr(0, end);
    sdp.remove_prefix(end);
    const bool isFir = line.starts_with("a=rtcp-fb:") && line.find(kFir) != std::string_view::npos;
    if (!isFir) kept += line;
  }
  return kept;
}

ObjectPtr<GObject> sessionOf(GstElement* rtpbin, guint sessionId) {
  GObject* session = nullptr;
  g_signal_emit_by_name(rtpbin, "get-internal-session", sessionId, &session);
  return ObjectPtr<GObject>(session);
}

// GStreamer 1.22 can print, at any time of a connection, that an assertion of g_hash_table_foreach
// failed: the thread that makes the reports releases the session's lock while it walks through the
// session's sources, and what arrives then can add one. GLib leaves the changed table at once, so
// that a report of this round is missing, which the next round has. GStreamer 1.24 walks through a
// copy.
void hastenFeedback(GstElement* rtpbin, guint sessionId) {
  const auto session = sessionOf(rtpbin, sessionId);
  if (!session) return;
  g_object_set(session.get(), "rtcp-fraction", kFeedbackBitsPerSecond, "rtcp-min-interval",
               kFeedbackInterval, nullptr);
}

// Nothing when something else than audio comes out of the pad.
std::optional<guint> audioSsrcOf(GstPad* pad) {
  const CapsPtr caps(gst_pad_get_current_caps(pad));
  const GstStructure* const format = caps ? gst_caps_get_structure(caps.get(), 0) : nullptr;
  const char* const media = format ? gst_structure_get_string(format, "media") : nullptr;
  guint ssrc = 0;
  if (!media || std::string_view(media) != "audio") return std::nullopt;
  if (!gst_structure_get_uint(format, "ssrc", &ssrc)) return std::nullopt;
  return ssrc;
}

using IteratorPtr = std::unique_ptr<GstIterator, ReleasedBy<gst_iterator_free>>;

std::vector<ObjectPtr<GstElement>> elementsIn(GstElement* bin) {
  std::vector<ObjectPtr<GstElement>> elements;
  const IteratorPtr iterator(gst_bin_iterate_recurse(GST_BIN(bin)));
  const auto add = [](const GValue* value, gpointer data) {
    auto& found = *static_cast<std::vector<ObjectPtr<GstElement>>*>(data);
    found.push_back(share(static_cast<GstElement*>(g_value_get_object(value))));
  };
  // Nobody adds or removes elements any more, so that the iteration is never repeated.
  gst_iterator_foreach(iterator.get(), add, &elements);
  return elements;
}

bool isBlocked(GstElement* receiveBin) {
  const auto elements = elementsIn(receiveBin);
  return std::any_of(elements.begin(), elements.end(), [](const auto& element) {
    const ObjectPtr<GstPad> pad(gst_element_get_static_pad(element.get(), "src"));
    return pad && gst_pad_is_blocked(pad.get());
  });
}

// The transports of ICE that a webrtcbin's transceivers use.
std::vector<ObjectPtr<GObject>> iceTransports(GstElement* webrtc) {
  GArray* raw = nullptr;
  g_signal_emit_by_name(webrtc, "get-transceivers", &raw);
  const std::unique_ptr<GArray, ReleasedBy<g_array_unref>> transceivers(raw);
  std::vector<ObjectPtr<GObject>> transports;
  for (guint i = 0; i < transceivers->len; ++i) {
    auto* const transceiver = g_array_index(transceivers.get(), GObject*, i);
    const ObjectPtr<GObject> receiver(property<GObject*>(transceiver, "receiver"));
    const ObjectPtr<GObject> dtls(property<GObject*>(receiver.get(), "transport"));
    if (dtls) transports.emplace_back(property<GObject*>(dtls.get(), "transport"));
  }
  return transports;
}

// Returns when the thread that runs `context` has done what it does now.
void waitForTurn(GMainContext* context) {
  const auto turn = std::make_shared<std::latch>(1);
  runOn(context, [turn] { turn->count_down(); });
  turn->wait();
}

// Stops what a webrtcbin leaves behind when it is stopped while it connects, with its pipeline in
// the state NULL:
// - Its thread, which ends last, may have started elements after they were stopped.
// - A bin that receives keeps itself by the block that it puts on a pad until ICE is connected. It
//   removes the block only when it goes to NULL, but that thread and ICE's may make one later.
void stopRemains(GstElement* webrtc) {
  const auto elements = elementsIn(webrtc);
  for (const auto& element : elements) {
    gst_element_set_locked_state(element.get(), TRUE);
    gst_element_set_state(element.get(), GST_STATE_NULL);
  }
  std::vector<GstElement*> receiveBins;
  for (const auto& element : elements) {
    if (std::string_view(G_OBJECT_TYPE_NAME(element.get())) == "TransportReceiveBin") {
      receiveBins.push_back(element.get());
    }
  }
  for (const auto& transport : iceTransports(webrtc)) {
    for (GstElement* const bin : receiveBins) {
      g_signal_handlers_disconnect_by_data(transport.get(), bin);
    }
  }
  const ObjectPtr<GObject> ice(property<GObject*>(webrtc, "ice-agent"));
  const ObjectPtr<GObject> agent(property<GObject*>(ice.get(), "agent"));
  waitForTurn(property<GMainContext*>(agent.get(), "main-context"));
  for (GstElement* const bin : receiveBins) {
    if (!isBlocked(bin)) continue;
    gst_element_set_state(bin, GST_STATE_READY);
    gst_element_set_state(bin, GST_STATE_NULL);
  }
}

}  // namespace

PeerConnection::PeerConnection(support::TaskLoop& loop, const IceOptions& ice, Handlers handlers)
    : handlers_(std::move(handlers)),
      isRelayForced_(ice.isRelayForced),
      inbox_(loop),
      pipeline_(makePipeline()),
      webrtc_(makeWebrtcBin(pipeline_.get(), ice)) {
  connect(webrtc_, "on-new-transceiver", std::function([](GstWebRTCRTPTransceiver* transceiver) {
            g_object_set(transceiver, "do-nack", TRUE, nullptr);
          }));
  connect(webrtc_, "on-ice-candidate",
          std::function([this, post = inbox_.poster()](guint mediaLine, gchar* candidate) {
            post([this, mediaLine, text = std::string(candidate)] {
              hasCandidate_ = true;
              handlers_.candidate(mediaLine, text);
            });
          }));
  if (handlers_.receiving) {
    connect(webrtc_, "pad-added", std::function([this](GstPad* pad) {
              if (GST_PAD_DIRECTION(pad) != GST_PAD_SRC) return;
              if (const auto ssrc = audioSsrcOf(pad)) {
                base::MutexLock lock(mutex_);
                const auto found = jitterBuffers_.find(*ssrc);
                if (found != jitterBuffers_.end()) {
                  g_object_set(found->second.get(), "latency", kAudioJitterBufferMs, nullptr);
                }
              }
              handlers_.receiving(pad);
            }));
  }
  watchSessions();
  watchState();
  watchBus();
}

PeerConnection::~PeerConnection() {
  gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  stopRemains(webrtc_);
}

void PeerConnection::watchSessions() {
  const ObjectPtr<GstElement> rtpbin(gst_bin_get_by_name(GST_BIN(webrtc_), "rtpbin"));
  connect(rtpbin.get(), "new-jitterbuffer",
          std::function([this, bin = rtpbin.get()](GstElement* jitterBuffer, guint session,
                                                   guint ssrc) {
            // The server sends no audio again. It would take requests for the video's packets
            // that stand behind others for the audio's, and refuse them, too.
            g_object_set(jitterBuffer, "faststart-min-packets", kFirstPackets, "do-retransmission",
                         static_cast<gboolean>(ssrc == receivedVideoSsrc_), nullptr);
            hastenFeedback(bin, session);
            watchFeedback(sessionOf(bin, session).get());
            base::MutexLock lock(mutex_);
            jitterBuffers_[ssrc] = share(jitterBuffer);
          }));
}

void PeerConnection::watchFeedback(GObject* session) {
  if (session == nullptr || isFeedbackWatched_.exchange(true)) return;
  connect(session, "on-sending-rtcp",
          std::function([this](GstBuffer* compound, gboolean) -> gboolean {
            putReportFirst(compound, receivedVideoSsrc_);
            return FALSE;
          }));
}

ObjectPtr<GObject> PeerConnection::session() const {
  const ObjectPtr<GstElement> rtpbin(gst_bin_get_by_name(GST_BIN(webrtc_), "rtpbin"));
  return sessionOf(rtpbin.get(), 0);
}

RtpCounts PeerConnection::counts() {
  const auto counted = session();
  if (!counted) return {};
  JitterBuffers buffers;
  {
    base::MutexLock lock(mutex_);
    for (const auto& [ssrc, buffer] : jitterBuffers_) buffers[ssrc] = share(buffer.get());
  }
  return countsOf(counted.get(), buffers);
}

void PeerConnection::watchFeedback() {
  connect(session().get(), "on-feedback-rtcp",
          std::function([this](guint type, guint format, guint, guint ssrc, GstBuffer* feedback) {
            constexpr guint kAnyOther = 15;
            if (type != GST_RTCP_TYPE_PSFB) return;
            if (format == kAnyOther) {
              if (const auto rate = grantedRateOf(feedback)) grantedBitsPerSecond_ = *rate;
            } else if (handlers_.keyFrameRequested && format == GST_RTCP_PSFB_TYPE_PLI) {
              handlers_.keyFrameRequested(ssrc);
            } else if (handlers_.keyFrameRequested && format == GST_RTCP_PSFB_TYPE_FIR) {
              handlers_.keyFrameRequested(0);
            }
          }));
}

void PeerConnection::watchState() {
  connect(webrtc_, "notify::ice-gathering-state",
          std::function([this, post = inbox_.poster()](GParamSpec*) {
            const auto state = property<GstWebRTCICEGatheringState>(webrtc_, "ice-gathering-state");
            if (state != GST_WEBRTC_ICE_GATHERING_STATE_COMPLETE) return;
            post([this] { allCandidatesFound(); });
          }));
  connect(webrtc_, "notify::connection-state",
          std::function([this, post = inbox_.poster()](GParamSpec*) {
            const auto state = property<GstWebRTCPeerConnectionState>(webrtc_, "connection-state");
            if (state == GST_WEBRTC_PEER_CONNECTION_STATE_CONNECTED) {
              post([this] { handlers_.connected(); });
            } else if (state == GST_WEBRTC_PEER_CONNECTION_STATE_FAILED) {
              post([this] { fail("there is no way for media to the server"); });
            }
          }));
}

void PeerConnection::allCandidatesFound() {
  handlers_.allCandidatesFound();
  // Without relays there may be other ways, which the server finds.
  if (isRelayForced_ && !hasCandidate_) fail(kNoRelay);
}

void PeerConnection::watchBus() {
  handleMessages(pipeline_.get(), [this, post = inbox_.poster()](GstMessage* message) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
      post([this, reason = errorText(message)] { fail(reason); });
    } else if (handlers_.told) {
      handlers_.told(message);
    }
  });
}

ObjectPtr<GstPad> PeerConnection::addPlace(const std::string& formats) {
  ObjectPtr<GstPad> place(gst_element_request_pad_simple(webrtc_, "sink_%u"));
  const ObjectPtr<GObject> transceiver(property<GObject*>(place.get(), "transceiver"));
  // Nothing need flow before the offer is made.
  const CapsPtr caps(gst_caps_from_string(formats.c_str()));
  g_object_set(transceiver.get(), "codec-preferences", caps.get(), "direction",
               GST_WEBRTC_RTP_TRANSCEIVER_DIRECTION_SENDONLY, nullptr);
  return place;
}

void PeerConnection::addSender(GstElement* bin, GstPad* place) {
  gst_bin_add(GST_BIN(pipeline_.get()), bin);
  const ObjectPtr<GstPad> source(gst_element_get_static_pad(bin, "src"));
  gst_pad_link(source.get(), place);
  gst_element_sync_state_with_parent(bin);
}

void PeerConnection::addReceiver(GstElement* bin, GstPad* pad) {
  gst_bin_add(GST_BIN(pipeline_.get()), bin);
  const ObjectPtr<GstPad> sink(gst_element_get_static_pad(bin, "sink"));
  gst_pad_link(pad, sink.get());
  gst_element_sync_state_with_parent(bin);
}

void PeerConnection::start() {
  if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    fail("the pipeline does not start");
  }
}

void PeerConnection::makeOffer(Described described) {
  g_signal_emit_by_name(webrtc_, "create-offer", nullptr,
                        promise([this, post = inbox_.poster(), kept = std::move(described)](
                                    const GstStructure* reply) { adopt("offer", reply, kept); }));
}

void PeerConnection::acceptOffer(const std::string& sdp, Described described) {
  receivedVideoSsrc_ = videoSsrcOf(sdp).value_or(0);
  setRemote(GST_WEBRTC_SDP_TYPE_OFFER, withoutFir(sdp),
            [this, kept = std::move(described)] { makeAnswer(kept); });
}

// webrtcbin chooses SSRCs of its own for what its offer does not have, with the first packet. They
// are replaced here before the element that sends again has seen a packet of the SSRC, when it
// takes them over for good.
void PeerConnection::sendRepetitionsAs(const std::map<std::uint32_t, std::uint32_t>& ssrcs) {
  const std::shared_ptr<GstStructure> map(gst_structure_new_empty("application/x-rtp-ssrc-map"),
                                          gst_structure_free);
  for (const auto& [ssrc, repeated] : ssrcs) {
    gst_structure_set(map.get(), std::to_string(ssrc).c_str(), G_TYPE_UINT, repeated, nullptr);
  }
  connect(webrtc_, "deep-element-added", std::function([map](GstBin*, GstElement* element) {
            if (std::string_view(G_OBJECT_TYPE_NAME(element)) != "GstRtpRtxSend") return;
            const ObjectPtr<GstPad> sink(gst_element_get_static_pad(element, "sink"));
            handleBuffers(sink.get(), [map, element] {
              g_object_set(element, "ssrc-map", map.get(), nullptr);
            });
          }));
}

void PeerConnection::acceptAnswer(const std::string& sdp) {
  setRemote(GST_WEBRTC_SDP_TYPE_ANSWER, sdp, nullptr);
}

void PeerConnection::makeAnswer(Described described) {
  g_signal_emit_by_name(webrtc_, "create-answer", nullptr,
                        promise([this, kept = std::move(described)](const GstStructure* reply) {
                          adopt("answer", reply, kept);
                        }));
}

// On webrtcbin's thread, which ends before this object.
void PeerConnection::adopt(const char* kind, const GstStructure* reply,
                           const Described& described) {
  GstWebRTCSessionDescription* made = nullptr;
  if (reply) {
    gst_structure_get(reply, kind, GST_TYPE_WEBRTC_SESSION_DESCRIPTION, &made, nullptr);
  }
  const DescriptionPtr description(made);
  const auto post = inbox_.poster();
  if (!description) {
    post([this, kind] { fail(std::string("no ") + kind + " could be made"); });
    return;
  }
  g_signal_emit_by_name(webrtc_, "set-local-description", made, nullptr);
  const TextPtr sdp(gst_sdp_message_as_text(description->sdp));
  post([described, text = std::string(sdp.get())] { described(text); });
}

void PeerConnection::setRemote(GstWebRTCSDPType type, const std::string& sdp,
                               std::function<void()> done) {
  GstSDPMessage* parsed = nullptr;
  if (gst_sdp_message_new_from_text(sdp.c_str(), &parsed) != GST_SDP_OK) {
    gst_sdp_message_free(parsed);
    fail("the server's description is not one");
    return;
  }
  const DescriptionPtr description(gst_webrtc_session_description_new(type, parsed));
  const auto post = inbox_.poster();
  g_signal_emit_by_name(webrtc_, "set-remote-description", description.get(),
                        promise([this, post, kept = std::move(done)](const GstStructure* reply) {
                          const bool isRefused =
                              reply != nullptr && gst_structure_has_field(reply, "error") != FALSE;
                          if (isRefused) {
                            post([this] { fail("the server's description cannot be followed"); });
                          } else if (kept) {
                            post(kept);
                          }
                        }));
}

void PeerConnection::addCandidate(const Json& candidate) {
  const std::string text = textAt(candidate, "candidate");
  const auto mediaLine = static_cast<guint>(numberAt(candidate, "sdpMLineIndex"));
  if (!text.empty()) g_signal_emit_by_name(webrtc_, "add-ice-candidate", mediaLine, text.c_str());
}

void PeerConnection::fail(const std::string& reason) {
  if (std::exchange(hasFailed_, true)) return;
  handlers_.failed(reason);
}

}  // namespace webrtc
