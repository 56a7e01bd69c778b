#include "test/engine/scripted_engine.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <latch>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace scripted {
namespace {

// Every operation that can be made to fail.
constexpr std::array kOperations = std::to_array<std::string_view>({
    "CreateTSLMManager",
    "DestroyTSLMManager",
    "RegisterNotifyCallback",
    "Initialize",
    "DeInitialize",
    "ConnectCall",
    "DisconnectCall",
    "MuteLocalVideo",
    "MuteLocalAudio",
    "SetRemoteAudioMute",
    "EnableCameraCapture",
    "SetAudioDebug",
    "UpdateMediaStreamState",
    "SetAudioInDevice",
    "SetAudioOutDevice",
    "SetVideoDevice",
    "SelectDevices",
    "SendAudioDeviceStats",
    "StartPresentation",
    "StopPresentation",
    "RequestContentShareToken",
    "ReleaseContentShareToken",
    "GetScreenMonitorDetails",
    "UpdateVideoStreamsState",
    "ConfigureMeetingStats",
    "GetMeetingStats",
    "GetRequiredMeetingAttributes",
    "GetConfigDataPtr",
    "RegisterEvent",
    "UnregisterEvent",
    "GetFrameManager",
    "isVesperCapable",
    "maxVOQualityIndex",
    "update",
    "GetFrame",
    "ReleaseFrame",
    "EnableFrameCapture",
    "DisableFrameCapture",
    "SetFrameReceiver",
});

// Those that can be made to return nothing. Operations that fill a record do not change it then.
constexpr std::array kOperationsWithResult = std::to_array<std::string_view>({
    "CreateTSLMManager",
    "GetScreenMonitorDetails",
    "GetMeetingStats",
    "GetRequiredMeetingAttributes",
    "GetConfigDataPtr",
    "GetFrameManager",
    "isVesperCapable",
    "maxVOQualityIndex",
    "GetFrame",
});

bool isAsleep(pid_t thread) {
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string id;
  std::string name;
  std::string state;
  status >> id >> name >> state;
  return state == "S";
}

bool contains(const auto& names, std::string_view name) {
  return std::ranges::find(names, name) != names.end();
}

using Sender = std::function<void(INotifyCallback&)>;
using MakeSender = std::function<Sender(const Array&)>;

template <typename... Parameters>
MakeSender sending(void (INotifyCallback::*notification)(Parameters...)) {
  return [notification](const Array& values) -> Sender {
    return [notification, arguments = argumentsFrom<Parameters...>(values)](INotifyCallback& to) {
      std::apply([&](const auto&... argument) { (to.*notification)(argument...); }, arguments);
    };
  };
}

#define NOTIFICATION(name) \
  { #name, sending(&INotifyCallback::name) }

const std::map<std::string, MakeSender, std::less<>>& notifications() {
  static const std::map<std::string, MakeSender, std::less<>> byName = {
      NOTIFICATION(NotifyInitCompleted),
      NOTIFICATION(NotifyStreamAdded),
      NOTIFICATION(NotifyStreamRemoved),
      NOTIFICATION(NotifyStreamUpdated),
      NOTIFICATION(NotifyGracefulEvent),
      NOTIFICATION(NotifyCallConnectionStatus),
      NOTIFICATION(NotifyScreenShareStatus),
      NOTIFICATION(NotifyContentReceiveStatus),
      NOTIFICATION(NotifyCallDisconnect),
      NOTIFICATION(NotifyMediaMuteState),
      NOTIFICATION(NotifyMicLevel),
      NOTIFICATION(NotifyRtpMediaState),
      NOTIFICATION(NotifyDeviceChange),
      NOTIFICATION(NotifyEvent),
      NOTIFICATION(NotifyUpdateVOQualityIndex),
  };
  return byName;
}

#undef NOTIFICATION

}  // namespace

ScriptedEngine& ScriptedEngine::instance() {
  static ScriptedEngine& engine = *new ScriptedEngine;
  return engine;
}

void ScriptedEngine::reset() {
  std::map<StreamKey, std::shared_ptr<Stream>> streams;
  std::map<std::int64_t, Job> jobs;
  std::map<std::int64_t, std::shared_ptr<INotifyCallback>> callbacks;
  {
    base::MutexLock lock(mutex_);
    streams.swap(streams_);
    jobs.swap(jobs_);
    callbacks.swap(callbacks_);
    recording_ = true;
    calls_.clear();
    observer_.reset();
    failures_.clear();
    initialisation_ = {};
    results_ = {};
    selectedEngine_ = 0;
    lastRegistered_ = 0;
    ++resets_;
    resetRequested_.NotifyAll();
  }
  for (auto& [handle, job] : jobs) {
    for (std::thread& thread : job.threads) thread.join();
  }
  for (auto& [key, stream] : streams) {
    stream->stopPushing();
  }
}

std::vector<Call> ScriptedEngine::calls() {
  base::MutexLock lock(mutex_);
  return calls_;
}

std::vector<Call> ScriptedEngine::takeCalls() {
  base::MutexLock lock(mutex_);
  return std::exchange(calls_, {});
}

void ScriptedEngine::recordCalls(bool enabled) {
  base::MutexLock lock(mutex_);
  recording_ = enabled;
}

void ScriptedEngine::observeCalls(Observer observer) {
  base::MutexLock lock(mutex_);
  observer_ = observer ? std::make_shared<const Observer>(std::move(observer)) : nullptr;
  observedThread_ = ::gettid();
}

std::int64_t ScriptedEngine::callbackOwners(std::int64_t engine) {
  base::MutexLock lock(mutex_);
  const auto found = callbacks_.find(engine);
  return found == callbacks_.end() ? 0 : found->second.use_count();
}

std::int64_t ScriptedEngine::receiverOwners(StreamKey key) { return stream(key)->receiverOwners(); }

std::vector<std::string> ScriptedEngine::failingOperations() {
  return {kOperations.begin(), kOperations.end()};
}

std::vector<std::string> ScriptedEngine::operationsWithResult() {
  return {kOperationsWithResult.begin(), kOperationsWithResult.end()};
}

void ScriptedEngine::failOperation(std::string operation, std::optional<Failure> failure) {
  if (!contains(kOperations, operation)) {
    throw std::invalid_argument("there is no operation " + operation);
  }
  if (failure && failure->returnsNull && !contains(kOperationsWithResult, operation)) {
    throw std::invalid_argument("there is no result of " + operation);
  }
  base::MutexLock lock(mutex_);
  if (failure) {
    failures_[std::move(operation)] = std::move(*failure);
  } else {
    failures_.erase(operation);
  }
}

void ScriptedEngine::setInitialisation(Initialisation initialisation) {
  constexpr std::array kModes =
      std::to_array<std::string_view>({"inside", "before-wait", "later", "when-waiting"});
  if (!contains(kModes, initialisation.mode)) {
    throw std::invalid_argument("there is no initialisation " + initialisation.mode);
  }
  // Reject an invalid notification here, not when the engine is initialised.
  for (const Notification& notification : initialisation.notifications) senderOf(notification);
  base::MutexLock lock(mutex_);
  initialisation_ = std::move(initialisation);
}

void ScriptedEngine::setResults(Results results) {
  base::MutexLock lock(mutex_);
  results_ = std::move(results);
}

Results ScriptedEngine::results() {
  base::MutexLock lock(mutex_);
  return results_;
}

bool ScriptedEngine::received(const char* operation, Record args, std::int64_t engine) {
  std::shared_ptr<const Observer> observer;
  {
    base::MutexLock lock(mutex_);
    if (observedThread_ == ::gettid()) observer = observer_;
  }
  if (observer) (*observer)(operation);

  Failure failure;
  {
    base::MutexLock lock(mutex_);
    if (recording_) calls_.push_back({operation, {std::move(args)}, ::gettid(), engine});
    const auto found = failures_.find(operation);
    if (found == failures_.end()) return false;
    failure = found->second;
  }
  if (failure.throws) throw std::runtime_error(*failure.throws);
  if (failure.throwsInt) throw 42;
  return failure.returnsNull;
}

// ---- Notifications

ScriptedEngine::Sender ScriptedEngine::senderOf(const Notification& notification) {
  const auto found = notifications().find(notification.name);
  if (found == notifications().end()) {
    throw std::invalid_argument("there is no notification " + notification.name);
  }
  return found->second(notification.args);
}

void ScriptedEngine::registerCallback(std::int64_t engine,
                                      std::shared_ptr<INotifyCallback> callback) {
  base::MutexLock lock(mutex_);
  lastRegistered_ = engine;
  // The argument, which now holds the former callback, outlives the lock.
  callbacks_[engine].swap(callback);
}

std::shared_ptr<INotifyCallback> ScriptedEngine::callbackOf(std::int64_t engine) {
  const auto found = callbacks_.find(engine);
  return found == callbacks_.end() ? nullptr : found->second;
}

void ScriptedEngine::initialise(std::int64_t engine) {
  std::shared_ptr<INotifyCallback> callback;
  Initialisation initialisation;
  std::int64_t resets = 0;
  {
    base::MutexLock lock(mutex_);
    callback = callbackOf(engine);
    initialisation = initialisation_;
    resets = resets_;
  }
  if (callback == nullptr) return;
  std::vector<Sender> senders;
  for (const Notification& notification : initialisation.notifications) {
    senders.push_back(senderOf(notification));
  }
  const auto notify = [callback, senders = std::move(senders)] {
    for (const Sender& send : senders) send(*callback);
  };

  if (initialisation.mode == "inside") {
    std::thread(notify).join();
    callback->NotifyInitCompleted();
  } else if (initialisation.mode == "before-wait") {
    std::thread([&] {
      notify();
      callback->NotifyInitCompleted();
    }).join();
  } else {
    auto returning = std::make_shared<std::latch>(1);
    const std::chrono::milliseconds delay(initialisation.delayMs);
    const bool waitsForSleep = initialisation.mode == "when-waiting";
    const pid_t caller = ::gettid();
    Job job;
    job.done = std::make_shared<std::atomic<std::int64_t>>(0);
    job.threads.emplace_back([=, this] {
      returning->wait();
      if (waitsForSleep) {
        while (!isAsleep(caller)) std::this_thread::yield();
      } else if (!waitUnlessReset(delay, resets)) {
        return;
      }
      notify();
      callback->NotifyInitCompleted();
    });
    addJob(std::move(job));
    returning->count_down();
  }
}

bool ScriptedEngine::waitUnlessReset(std::chrono::milliseconds delay, std::int64_t resets) {
  const auto end = std::chrono::steady_clock::now() + delay;
  base::MutexLock lock(mutex_);
  while (resets_ == resets && resetRequested_.WaitUntil(mutex_, end)) {
  }
  return resets_ == resets;
}

void ScriptedEngine::selectEngine(std::int64_t engine) {
  base::MutexLock lock(mutex_);
  selectedEngine_ = engine;
}

std::int64_t ScriptedEngine::startPosting(std::vector<Posting> postings) {
  std::shared_ptr<INotifyCallback> callback;
  {
    base::MutexLock lock(mutex_);
    callback = callbackOf(selectedEngine_ == 0 ? lastRegistered_ : selectedEngine_);
  }
  if (callback == nullptr) throw std::invalid_argument("the engine holds no callback");
  std::vector<std::vector<Sender>> senders;
  for (const Posting& posting : postings) {
    auto& ofThread = senders.emplace_back();
    for (const Notification& notification : posting.notifications) {
      ofThread.push_back(senderOf(notification));
    }
  }

  Job job;
  job.done = std::make_shared<std::atomic<std::int64_t>>(0);
  auto start = std::make_shared<std::latch>(static_cast<std::ptrdiff_t>(postings.size()));
  for (std::size_t i = 0; i < postings.size(); ++i) {
    job.threads.emplace_back([callback, start, done = job.done, list = std::move(senders[i]),
                              repeat = postings[i].repeat] {
      start->arrive_and_wait();
      for (std::uint32_t round = 0; round < repeat; ++round) {
        for (const Sender& send : list) send(*callback);
      }
      *done += static_cast<std::int64_t>(list.size()) * repeat;
    });
  }
  return addJob(std::move(job));
}

std::int64_t ScriptedEngine::addJob(Job job) {
  base::MutexLock lock(mutex_);
  jobs_.emplace(++lastHandle_, std::move(job));
  return lastHandle_;
}

std::int64_t ScriptedEngine::join(std::int64_t handle) {
  Job job;
  {
    base::MutexLock lock(mutex_);
    const auto found = jobs_.find(handle);
    if (found == jobs_.end()) throw std::invalid_argument("there is nothing to join");
    job = std::move(found->second);
    jobs_.erase(found);
  }
  for (std::thread& thread : job.threads) thread.join();
  return *job.done;
}

void ScriptedEngine::dropCallbacks(bool onEngineThread) {
  std::map<std::int64_t, std::shared_ptr<INotifyCallback>> callbacks;
  {
    base::MutexLock lock(mutex_);
    callbacks.swap(callbacks_);
  }
  if (onEngineThread) std::thread([&] { callbacks.clear(); }).join();
}

// ---- Streams

std::shared_ptr<Stream> ScriptedEngine::stream(const StreamKey& key) {
  base::MutexLock lock(mutex_);
  std::shared_ptr<Stream>& stream = streams_[key];
  if (stream == nullptr) stream = std::make_shared<Stream>(key);
  return stream;
}

std::shared_ptr<Stream> ScriptedEngine::streamWithFrameManager(const StreamKey& key) {
  std::shared_ptr<Stream> stream;
  {
    base::MutexLock lock(mutex_);
    const auto found = streams_.find(key);
    if (found != streams_.end()) stream = found->second;
  }
  return stream != nullptr && stream->hasFrameManager() ? stream : nullptr;
}

void ScriptedEngine::setStream(StreamKey key, bool hasFrameManager, bool keepsReceiver) {
  const std::shared_ptr<Stream> set = stream(key);
  set->setHasFrameManager(hasFrameManager);
  set->setKeepsReceiver(keepsReceiver);
}

void ScriptedEngine::setFrame(StreamKey key, FrameAnswer answer) {
  stream(key)->setAnswer(std::move(answer));
}

std::int64_t ScriptedEngine::startPush(StreamKey key, PushedFrame frame) {
  const std::shared_ptr<Stream> to = stream(key);
  Job job;
  job.done = std::make_shared<std::atomic<std::int64_t>>(0);
  job.threads.emplace_back(
      [to, done = job.done, made = to->makeFrame(frame, false), csrc = frame.csrc]() mutable {
        if (to->deliver(made, csrc)) ++*done;
        made.reset();
      });
  return addJob(std::move(job));
}

void ScriptedEngine::startPushing(StreamKey key, Pushing pushing) {
  stream(key)->startPushing(pushing);
}

std::int64_t ScriptedEngine::stopPushing(StreamKey key) { return stream(key)->stopPushing(); }

LiveObjects ScriptedEngine::live() {
  return {liveCounts.engines, liveCounts.frameManagers, liveCounts.configurations,
          ScriptedFrame::live()};
}

}  // namespace scripted
