// An addon with one bug for each sanitizer, to prove that the sanitizer is active where the tests
// run: inside an ordinary node with the sanitizer's runtime preloaded.

#include <napi.h>

#include <limits>
#include <thread>

namespace {

// The compiler must neither see the bugs, which it would refuse, nor remove them.
template <typename T>
T opaque(T value) {
  asm volatile("" : "+r"(value) : : "memory");
  return value;
}

void heapUseAfterFree(const Napi::CallbackInfo&) {
  int* const value = opaque(new int(1));
  delete opaque(value);
  *opaque(value) = 2;
}

void undefinedOverflow(const Napi::CallbackInfo&) {
  int largest = std::numeric_limits<int>::max();
  opaque(opaque(largest) + 1);
}

void leak(const Napi::CallbackInfo&) {
  // Several, since a stale register or stack slot may still point at the last.
  for (int i = 0; i < 10; ++i) opaque(new int(i));
}

void dataRace(const Napi::CallbackInfo&) {
  int value = 0;
  const auto increment = [&value] { ++*opaque(&value); };
  std::thread one(increment);
  std::thread other(increment);
  one.join();
  other.join();
}

Napi::Object initialise(Napi::Env env, Napi::Object exports) {
  exports["heapUseAfterFree"] = Napi::Function::New(env, heapUseAfterFree);
  exports["undefinedOverflow"] = Napi::Function::New(env, undefinedOverflow);
  exports["leak"] = Napi::Function::New(env, leak);
  exports["dataRace"] = Napi::Function::New(env, dataRace);
  return exports;
}

NODE_API_MODULE(canary, initialise)

}  // namespace
