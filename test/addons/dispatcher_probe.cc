// Lets JavaScript drive a JavascriptDispatcher and a NapiThreadsafeFunction from real threads.

#include <napi.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "addon/events/javascript_dispatcher.h"
#include "addon/events/napi_threadsafe_function.h"
#include "addon/napi/environment_cleanup_hook.h"
#include "addon/napi/values.h"

using events::Closure;
using events::JavascriptDispatcher;
using events::NapiThreadsafeFunction;

namespace {

// How many scopes of each kind cannot be opened. JavaScript thread.
std::map<std::string, int> failingScopes;

bool takeFailure(const std::string& kind) {
  const auto failing = failingScopes.find(kind);
  return failing != failingScopes.end() && failing->second-- > 0;
}

}  // namespace

// Node-API's own, which the linker puts behind these names (--wrap).
extern "C" {
napi_status __real_napi_open_handle_scope(napi_env env, napi_handle_scope* result);
napi_status __real_napi_open_callback_scope(napi_env env, napi_value resource,
                                            napi_async_context context,
                                            napi_callback_scope* result);

napi_status __wrap_napi_open_handle_scope(napi_env env, napi_handle_scope* result) {
  if (takeFailure("handle")) return napi_generic_failure;
  return __real_napi_open_handle_scope(env, result);
}

napi_status __wrap_napi_open_callback_scope(napi_env env, napi_value resource,
                                            napi_async_context context,
                                            napi_callback_scope* result) {
  if (takeFailure("callback")) return napi_generic_failure;
  return __real_napi_open_callback_scope(env, resource, context, result);
}
}

namespace {

// Captured by every posted closure, so that those which are still alive can be counted.
class Token {
 public:
  Token() { ++alive; }
  Token(const Token&) : Token() {}
  Token& operator=(const Token&) = delete;
  ~Token() { --alive; }

  static inline std::atomic<int> alive = 0;
};

// True while the thread sleeps.
bool isAsleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string text;
  std::getline(file, text);
  // The state follows the thread's name, which is in parentheses and may hold any character.
  const std::size_t nameEnd = text.rfind(") ");
  return nameEnd != std::string::npos && text[nameEnd + 2] == 'S';
}

// A thread that calls the dispatcher's sync() once. Its answers are for the JavaScript thread.
class SyncCaller {
 public:
  SyncCaller(std::shared_ptr<JavascriptDispatcher> dispatcher, Closure closure)
      : thread_([this, dispatcher = std::move(dispatcher), closure = std::move(closure)]() mutable {
          id_ = gettid();
          dispatcher->sync(std::move(closure));
          hasReturned_ = true;
        }) {}

  bool hasReturned() const { return hasReturned_; }
  bool isBlocked() const { return id_ != 0 && isAsleep(id_) && !hasReturned_; }
  void join() { thread_.join(); }

 private:
  std::atomic<pid_t> id_ = 0;  // 0 until the thread runs
  std::atomic<bool> hasReturned_ = false;
  std::thread thread_;  // last: it uses the members above
};

// new Dispatcher(listener): items posted through it call the listener with the values that they
// were posted with.
class Dispatcher : public Napi::ObjectWrap<Dispatcher> {
 public:
  static Napi::Function define(Napi::Env env) {
    return DefineClass(
        env, "Dispatcher",
        {
            InstanceMethod<&Dispatcher::async>("async"),
            InstanceMethod<&Dispatcher::asyncObject>("asyncObject"),
            InstanceMethod<&Dispatcher::asyncThrowing>("asyncThrowing"),
            InstanceMethod<&Dispatcher::startPosting>("startPosting"),
            InstanceMethod<&Dispatcher::startPostingWhenIdle>("startPostingWhenIdle"),
            InstanceMethod<&Dispatcher::startSync>("startSync"),
            InstanceMethod<&Dispatcher::isBlocked>("isBlocked"),
            InstanceMethod<&Dispatcher::hasReturned>("hasReturned"),
            InstanceMethod<&Dispatcher::join>("join"),
            InstanceMethod<&Dispatcher::releaseEventLoop>("releaseEventLoop"),
            InstanceMethod<&Dispatcher::close>("close"),
            InstanceMethod<&Dispatcher::release>("release"),
            InstanceMethod<&Dispatcher::releaseOnThread>("releaseOnThread"),
        });
  }

  explicit Dispatcher(const Napi::CallbackInfo& info)
      : Napi::ObjectWrap<Dispatcher>(info),
        listener_(Napi::Persistent(info[0].As<Napi::Function>())),
        dispatcher_(std::make_shared<JavascriptDispatcher>(info.Env())),
        cleanupHook_(info.Env(), [this] { end(); }) {}

  ~Dispatcher() override { end(); }

 private:
  // async(value): posts from this thread.
  void async(const Napi::CallbackInfo& info) { dispatcher_->async(calling(intAt(info, 0))); }

  // asyncObject(): posts an item that calls the listener with an object that nothing else refers
  // to.
  void asyncObject(const Napi::CallbackInfo&) {
    dispatcher_->async([this](Napi::Env env) { listener_.Call({Napi::Object::New(env)}); });
  }

  // asyncThrowing('exception' | 'nonStandard' | 'empty' | 'afterListener'): posts an item that
  // throws by itself; the last one calls the listener first.
  void asyncThrowing(const Napi::CallbackInfo& info) {
    const std::string kind = info[0].As<Napi::String>();
    Closure closure;
    if (kind == "exception") {
      closure = [token = Token()](Napi::Env) { throw std::runtime_error("a native exception"); };
    } else if (kind == "nonStandard") {
      closure = [token = Token()](Napi::Env) { throw 42; };
    } else if (kind == "afterListener") {
      closure = [this, token = Token()](Napi::Env) {
        listener_.Call(std::vector<napi_value>());
        throw std::runtime_error("thrown after the listener");
      };
    }
    dispatcher_->async(std::move(closure));
  }

  // startPosting(threads, perThread): each thread posts items with the values (thread, 0), (thread,
  // 1) and so on.
  void startPosting(const Napi::CallbackInfo& info) {
    const int perThread = intAt(info, 1);
    for (int thread = 0; thread < intAt(info, 0); ++thread) {
      posters_.emplace_back([this, dispatcher = dispatcher_, thread, perThread] {
        for (int i = 0; i < perThread; ++i) dispatcher->async(calling(thread, i));
      });
    }
  }

  // startPostingWhenIdle(value): a thread waits until this one sleeps in its event loop, then
  // posts.
  void startPostingWhenIdle(const Napi::CallbackInfo& info) {
    const pid_t loopThread = gettid();
    posters_.emplace_back([this, dispatcher = dispatcher_, value = intAt(info, 0), loopThread] {
      while (!isAsleep(loopThread)) std::this_thread::yield();
      dispatcher->async(calling(value));
    });
  }

  // startSync(value): a thread posts with sync(). Answers with the caller's number.
  Napi::Value startSync(const Napi::CallbackInfo& info) {
    syncCallers_.push_back(std::make_unique<SyncCaller>(dispatcher_, calling(intAt(info, 0))));
    return Napi::Number::New(info.Env(), static_cast<double>(syncCallers_.size() - 1));
  }

  Napi::Value isBlocked(const Napi::CallbackInfo& info) {
    return Napi::Boolean::New(info.Env(), callerAt(info).isBlocked());
  }

  Napi::Value hasReturned(const Napi::CallbackInfo& info) {
    return Napi::Boolean::New(info.Env(), callerAt(info).hasReturned());
  }

  // Waits for all threads.
  void join(const Napi::CallbackInfo&) { joinThreads(); }

  void releaseEventLoop(const Napi::CallbackInfo&) { dispatcher_->releaseEventLoop(); }
  void close(const Napi::CallbackInfo&) { dispatcher_->close(); }

  // Releases the dispatcher, which is destroyed when no thread holds it.
  void release(const Napi::CallbackInfo&) { dispatcher_.reset(); }
  void releaseOnThread(const Napi::CallbackInfo&) {
    std::thread([dispatcher = std::move(dispatcher_)]() mutable { dispatcher.reset(); }).join();
  }

  // A closure that calls the listener with `values`.
  template <typename... Values>
  Closure calling(Values... values) {
    return [this, values..., token = Token()](Napi::Env env) {
      listener_.Call({Napi::Number::New(env, values)...});
    };
  }

  static int intAt(const Napi::CallbackInfo& info, std::size_t index) {
    return info[index].As<Napi::Number>();
  }
  const SyncCaller& callerAt(const Napi::CallbackInfo& info) const {
    return *syncCallers_.at(static_cast<std::size_t>(intAt(info, 0)));
  }

  void joinThreads() {
    for (auto& poster : posters_) poster.join();
    posters_.clear();
    for (auto& caller : syncCallers_) caller->join();
    syncCallers_.clear();
  }

  void end() {
    if (dispatcher_) dispatcher_->close();
    joinThreads();
  }

  // JavaScript thread only.
  Napi::FunctionReference listener_;
  std::shared_ptr<JavascriptDispatcher> dispatcher_;
  std::vector<std::thread> posters_;
  std::vector<std::unique_ptr<SyncCaller>> syncCallers_;
  napi::EnvironmentCleanupHook cleanupHook_;
};

// new Channel(listener): a bare NapiThreadsafeFunction whose closures call the listener with their
// numbers; without a listener the closures are empty. discarded() lists the numbers of the closures
// that were freed without having run.
class Channel : public Napi::ObjectWrap<Channel> {
 public:
  static Napi::Function define(Napi::Env env) {
    return DefineClass(env, "Channel",
                       {
                           InstanceMethod<&Channel::callFromThread>("callFromThread"),
                           InstanceMethod<&Channel::unref>("unref"),
                           InstanceMethod<&Channel::close>("close"),
                           InstanceMethod<&Channel::discarded>("discarded"),
                       });
  }

  explicit Channel(const Napi::CallbackInfo& info)
      : Napi::ObjectWrap<Channel>(info),
        function_(info.Env()),
        cleanupHook_(info.Env(), [this] { function_.close(); }) {
    if (info[0].IsFunction()) listener_ = Napi::Persistent(info[0].As<Napi::Function>());
  }

 private:
  // callFromThread(first, last): returns when a thread has posted these items.
  void callFromThread(const Napi::CallbackInfo& info) {
    const std::uint32_t first = info[0].As<Napi::Number>();
    const std::uint32_t last = info[1].As<Napi::Number>();
    std::thread([this, first, last] {
      for (std::uint32_t number = first; number <= last; ++number) function_.call(closure(number));
    }).join();
  }

  void unref(const Napi::CallbackInfo&) { function_.unref(); }
  void close(const Napi::CallbackInfo&) { function_.close(); }

  Napi::Value discarded(const Napi::CallbackInfo& info) {
    return napi::makeArray(info.Env(), discarded_, [&](std::uint32_t number) {
      return napi::toJavascript(info.Env(), number);
    });
  }

  // Notes the number of a closure that did not run.
  class Item {
   public:
    Item(Channel& channel, std::uint32_t number) : channel_(channel), number_(number) {}
    ~Item() {
      if (!hasRun_) channel_.discarded_.push_back(number_);
    }
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;

    void run(Napi::Env env) {
      hasRun_ = true;
      channel_.listener_.Call({Napi::Number::New(env, number_)});
    }

   private:
    Channel& channel_;
    const std::uint32_t number_;
    bool hasRun_ = false;
  };

  Closure closure(std::uint32_t number) {
    if (listener_.IsEmpty()) return nullptr;
    return [item = std::make_shared<Item>(*this, number)](Napi::Env env) { item->run(env); };
  }

  // JavaScript thread, or a thread that the JavaScript thread waits for.
  Napi::FunctionReference listener_;
  std::vector<std::uint32_t> discarded_;
  NapiThreadsafeFunction function_;
  napi::EnvironmentCleanupHook cleanupHook_;
};

Napi::Value closuresAlive(const Napi::CallbackInfo& info) {
  return Napi::Number::New(info.Env(), Token::alive);
}

// failScopes(kind, times): the next `times` scopes of the kind, 'handle' or 'callback', cannot be
// opened.
void failScopes(const Napi::CallbackInfo& info) {
  const std::string kind = info[0].As<Napi::String>();
  failingScopes[kind] = info[1].As<Napi::Number>();
}

Napi::Object initialise(Napi::Env env, Napi::Object exports) {
  exports["Dispatcher"] = Dispatcher::define(env);
  exports["Channel"] = Channel::define(env);
  exports["failScopes"] = Napi::Function::New(env, failScopes);
  exports["closuresAlive"] = Napi::Function::New(env, closuresAlive);
  return exports;
}

NODE_API_MODULE(dispatcher_probe, initialise)

}  // namespace
