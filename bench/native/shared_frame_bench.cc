// What the benchmarks between a main process and a widget load: the main process's side of shared
// memory, without an engine or a wrapper. Pictures of 1280x720 are stored as an engine's frame
// threads would, in the thread that asks for it.

#include <fcntl.h>
#include <napi.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <memory>

#include "addon/sharedmem/shared_memory_manager.h"
#include "bench/native/picture.h"

using sharedmem::SharedMemoryInfo;
using sharedmem::SharedMemoryManager;

namespace {

struct Bench {
  Bench() {
    for (std::size_t i = 0; i < pool.size(); ++i) {
      pool[i] = std::make_shared<Picture>(static_cast<std::uint8_t>(i));
    }
  }

  std::shared_ptr<SharedMemoryManager> manager = SharedMemoryManager::CreateSharedMemoryManager();
  // In turn, as a decoder's.
  std::array<std::shared_ptr<Picture>, 8> pool;
};
Bench* bench;  // for the length of the process

// share(streams) puts so many remote streams into shared memory, and answers with the main
// segment's names.
Napi::Value share(const Napi::CallbackInfo& info) {
  const int streams = info[0].As<Napi::Number>().Int32Value();
  for (int i = 0; i < streams; ++i) {
    if (!bench->manager->enableSharedMemory({TSLM_STREAM_REMOTE, i})) {
      throw Napi::Error::New(info.Env(), "no room in /dev/shm");
    }
  }
  const SharedMemoryInfo& segment = bench->manager->getSharedMemInfo();
  Napi::Object names = Napi::Object::New(info.Env());
  names["shm_name"] = Napi::String::New(info.Env(), segment.shmName);
  names["sem_name"] = Napi::String::New(info.Env(), segment.semName);
  return names;
}

// store(streamIndex, number): copies picture `number` of the pool, counted around, to the stream.
void store(const Napi::CallbackInfo& info) {
  const int index = info[0].As<Napi::Number>().Int32Value();
  const std::uint32_t number = info[1].As<Napi::Number>().Uint32Value();
  bench->manager->NotifyFrameArrived(bench->pool[number % bench->pool.size()], number,
                                     {TSLM_STREAM_REMOTE, index});
}

// silenceLines(): keeps the classes' own lines from the standard output, and answers with a
// descriptor of where that had led.
Napi::Value silenceLines(const Napi::CallbackInfo& info) {
  const int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  close(nowhere);
  return Napi::Number::New(info.Env(), output);
}

Napi::Object initialise(Napi::Env env, Napi::Object exports) {
  exports["silenceLines"] = Napi::Function::New(env, silenceLines);
  exports["open"] = Napi::Function::New(env, [](const Napi::CallbackInfo&) { bench = new Bench; });
  exports["share"] = Napi::Function::New(env, share);
  exports["store"] = Napi::Function::New(env, store);
  return exports;
}

NODE_API_MODULE(shared_frame_bench, initialise)

}  // namespace
