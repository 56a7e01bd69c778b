// A thread with an owner.

#ifndef ENGINE_SUPPORT_WORKER_H_
#define ENGINE_SUPPORT_WORKER_H_

#include <thread>
#include <utility>

namespace support {

// Runs a function on a thread of its own and waits for its end. One thread at a time may call it.
//
// A notification or a frame may make the application end the engine from inside the engine's own
// thread, which cannot wait for itself: finish() then lets the thread run on alone. The function
// must therefore own whatever it touches.
class Worker {
 public:
  Worker() = default;
  ~Worker() { finish(); }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  template <typename Function>
  void start(Function&& function) {
    thread_ = std::thread(std::forward<Function>(function));
  }

  bool isCurrentThread() const { return thread_.get_id() == std::this_thread::get_id(); }

  void finish() {
    if (!thread_.joinable()) return;
    if (isCurrentThread()) {
      thread_.detach();
    } else {
      thread_.join();
    }
  }

 private:
  std::thread thread_;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_WORKER_H_
