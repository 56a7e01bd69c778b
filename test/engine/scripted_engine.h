// The controls of the scripted engine: a library with the engine's interface that a test controls,
// and that records every call.

#ifndef TEST_ENGINE_SCRIPTED_ENGINE_H_
#define TEST_ENGINE_SCRIPTED_ENGINE_H_

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/mutex.h"
#include "tesselclient/tesselclient.h"
#include "test/engine/conversion.h"
#include "test/engine/scripted_stream.h"
#include "test/engine/value.h"

namespace scripted {

// One call that the engine received.
struct Call {
  std::string operation;
  Value args;               // one field for each parameter, under its name in the interface
  std::int64_t thread = 0;  // the caller's, as the system numbers it
  std::int64_t engine = 0;  // facades count from 1; 0 where no facade is concerned
};

// The way in which an operation fails from now on.
struct Failure {
  std::optional<std::string> throws;  // text of the std::runtime_error
  bool throwsInt = false;             // throws the integer 42
  bool returnsNull = false;           // answers with an empty, null or zero result, if it has one
};

struct Notification {
  std::string name;
  Array args;
};

// What Initialize does about NotifyInitCompleted.
struct Initialisation {
  // "inside": called by Initialize itself; "before-wait": from another thread that has ended when
  // Initialize returns; "later": from another thread, after Initialize has returned;
  // "when-waiting": from another thread, when the one that called Initialize is asleep.
  std::string mode = "inside";
  std::uint32_t delayMs = 20;  // in "later": the time that the engine takes to start
  // Sent from an engine thread, just before completion.
  std::vector<Notification> notifications;
};

// What the operations with a result answer.
struct Results {
  std::vector<tsl::ScreenMonitor> screenMonitors;
  tsl::MeetingStats meetingStats;
  std::set<std::string> requiredMeetingAttributes;
  bool isVesperCapable = false;
  std::int32_t maxVOQualityIndex = 0;
};

// The work of one notifying thread.
struct Posting {
  std::vector<Notification> notifications;
  std::uint32_t repeat = 1;  // how many times the list is sent
};

// How many of the engine's objects the process still holds.
struct LiveObjects {
  std::int64_t engines = 0;
  std::int64_t frameManagers = 0;
  std::int64_t configurations = 0;
  std::int64_t frames = 0;
};

// The engine behind all facades of the process; there is one, and it is never destroyed, as engine
// threads and late calls may meet it until the process ends. reset() ends its threads.
//
// All operations may be called from any thread, but not from a notification or a frame delivery.
// A name, a handle or an argument that does not fit throws std::invalid_argument.
class TESSELCLIENT_API ScriptedEngine {
 public:
  static ScriptedEngine& instance();

  ScriptedEngine(const ScriptedEngine&) = delete;
  ScriptedEngine& operator=(const ScriptedEngine&) = delete;

  // Restores the initial state: joins all threads, releases everything held.
  void reset();

  // ---- Calls received

  std::vector<Call> calls() EXCLUDES(mutex_);
  // Answers with the calls and forgets them.
  std::vector<Call> takeCalls() EXCLUDES(mutex_);
  // Calls are recorded unless told otherwise; a benchmark has no use for millions of them.
  void recordCalls(bool enabled) EXCLUDES(mutex_);

  // Is called with the operation's name at each call that the thread that set it makes, before the
  // call has an effect. None after an empty one, or a reset.
  using Observer = std::function<void(const std::string& operation)>;
  void observeCalls(Observer observer) EXCLUDES(mutex_);

  // How many owners the callback of a facade has, and the receiver of a stream: 1 is the engine
  // alone, 0 stands for none.
  std::int64_t callbackOwners(std::int64_t engine) EXCLUDES(mutex_);
  std::int64_t receiverOwners(StreamKey key) EXCLUDES(mutex_);

  // ---- Behaviour

  // The names of all that can be made to fail, and of those that can answer with nothing.
  static std::vector<std::string> failingOperations();
  static std::vector<std::string> operationsWithResult();
  // An absent failure lets the operation succeed again.
  void failOperation(std::string operation, std::optional<Failure> failure) EXCLUDES(mutex_);
  void setInitialisation(Initialisation initialisation) EXCLUDES(mutex_);
  void setResults(Results results) EXCLUDES(mutex_);

  // ---- Notifications

  // Facade whose callback is notified; 0, the default, stands for the last one that registered.
  void selectEngine(std::int64_t engine) EXCLUDES(mutex_);
  // Starts one thread for each posting and lets them go at once. Answers with a handle to join.
  std::int64_t startPosting(std::vector<Posting> postings) EXCLUDES(mutex_);
  // Waits until the threads behind the handle have ended. Answers with the number of notifications
  // sent, or of frames that a receiver took.
  std::int64_t join(std::int64_t handle) EXCLUDES(mutex_);
  // Callbacks are held, beyond their facade's end, until this is called.
  void dropCallbacks(bool onEngineThread) EXCLUDES(mutex_);

  // ---- Streams; unknown ones have no frame manager

  // One that keeps its receiver continues to deliver to it after SetFrameReceiver(nullptr).
  void setStream(StreamKey key, bool hasFrameManager, bool keepsReceiver) EXCLUDES(mutex_);
  // What the stream's GetFrame answers. Gives the stream a frame manager.
  void setFrame(StreamKey key, FrameAnswer answer) EXCLUDES(mutex_);
  // Delivers one frame to the stream's receiver, on a thread of its own. Answers with a handle to
  // join.
  std::int64_t startPush(StreamKey key, PushedFrame frame) EXCLUDES(mutex_);
  // Delivers frames from a thread of the stream's own until stopped.
  void startPushing(StreamKey key, Pushing pushing) EXCLUDES(mutex_);
  // Answers with the number of frames that a receiver took.
  std::int64_t stopPushing(StreamKey key) EXCLUDES(mutex_);

  LiveObjects live();

  // ---- For the engine's own classes

  struct LiveCounts {
    std::atomic<std::int64_t> engines = 0;
    std::atomic<std::int64_t> frameManagers = 0;
    std::atomic<std::int64_t> configurations = 0;
  };
  LiveCounts liveCounts;

  std::int64_t nextEngineNumber() { return ++lastEngineNumber_; }
  // Records a call and fails it as told: throws, or returns true when the operation is to answer
  // with nothing.
  bool received(const char* operation, Record args, std::int64_t engine) EXCLUDES(mutex_);
  void registerCallback(std::int64_t engine, std::shared_ptr<INotifyCallback> callback)
      EXCLUDES(mutex_);
  void initialise(std::int64_t engine) EXCLUDES(mutex_);
  Results results() EXCLUDES(mutex_);
  // Null when the stream has no frame manager.
  std::shared_ptr<Stream> streamWithFrameManager(const StreamKey& key) EXCLUDES(mutex_);

 private:
  // A notification whose arguments have their types.
  using Sender = std::function<void(INotifyCallback&)>;
  // Threads that will be joined.
  struct Job {
    std::vector<std::thread> threads;
    std::shared_ptr<std::atomic<std::int64_t>> done;
  };

  ScriptedEngine() = default;
  // Never runs; declared so that the only instance cannot be deleted.
  ~ScriptedEngine() = default;

  static Sender senderOf(const Notification& notification);
  std::shared_ptr<INotifyCallback> callbackOf(std::int64_t engine) REQUIRES(mutex_);
  std::shared_ptr<Stream> stream(const StreamKey& key) EXCLUDES(mutex_);
  std::int64_t addJob(Job job) EXCLUDES(mutex_);
  // False as soon as there were more than `resets` resets.
  bool waitUnlessReset(std::chrono::milliseconds delay, std::int64_t resets) EXCLUDES(mutex_);

  std::atomic<std::int64_t> lastEngineNumber_ = 0;

  base::Mutex mutex_;
  base::CondVar resetRequested_;
  std::int64_t resets_ GUARDED_BY(mutex_) = 0;
  bool recording_ GUARDED_BY(mutex_) = true;
  std::vector<Call> calls_ GUARDED_BY(mutex_);
  std::shared_ptr<const Observer> observer_ GUARDED_BY(mutex_);  // null for none
  pid_t observedThread_ GUARDED_BY(mutex_) = 0;
  std::map<std::string, Failure, std::less<>> failures_ GUARDED_BY(mutex_);
  Initialisation initialisation_ GUARDED_BY(mutex_);
  Results results_ GUARDED_BY(mutex_);
  // By facade.
  std::map<std::int64_t, std::shared_ptr<INotifyCallback>> callbacks_ GUARDED_BY(mutex_);
  std::int64_t lastRegistered_ GUARDED_BY(mutex_) = 0;
  std::int64_t selectedEngine_ GUARDED_BY(mutex_) = 0;
  std::map<std::int64_t, Job> jobs_ GUARDED_BY(mutex_);
  std::int64_t lastHandle_ GUARDED_BY(mutex_) = 0;
  std::map<StreamKey, std::shared_ptr<Stream>> streams_ GUARDED_BY(mutex_);
};

template <>
struct Fields<Call> {
  static void list(auto& record, auto&& field) {
    LISTED(operation);
    LISTED(args);
    LISTED(thread);
    LISTED(engine);
  }
};

template <>
struct Fields<Failure> {
  static void list(auto& record, auto&& field) {
    LISTED(throws);
    LISTED(throwsInt);
    LISTED(returnsNull);
  }
};

template <>
struct Fields<Notification> {
  static void list(auto& record, auto&& field) {
    LISTED(name);
    LISTED(args);
  }
};

template <>
struct Fields<Initialisation> {
  static void list(auto& record, auto&& field) {
    LISTED(mode);
    LISTED(delayMs);
    LISTED(notifications);
  }
};

template <>
struct Fields<Results> {
  static void list(auto& record, auto&& field) {
    LISTED(screenMonitors);
    LISTED(meetingStats);
    LISTED(requiredMeetingAttributes);
    LISTED(isVesperCapable);
    LISTED(maxVOQualityIndex);
  }
};

template <>
struct Fields<Posting> {
  static void list(auto& record, auto&& field) {
    LISTED(notifications);
    LISTED(repeat);
  }
};

template <>
struct Fields<LiveObjects> {
  static void list(auto& record, auto&& field) {
    LISTED(engines);
    LISTED(frameManagers);
    LISTED(configurations);
    LISTED(frames);
  }
};

}  // namespace scripted

#endif  // TEST_ENGINE_SCRIPTED_ENGINE_H_
