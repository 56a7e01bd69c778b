// What the allocator has given out in this process, for tests of growth. How much it keeps free
// besides depends on how the threads of a call happened to take turns.

#include <malloc.h>
#include <napi.h>

namespace {

// In all arenas and in the large blocks outside them.
Napi::Value allocatedBytes(const Napi::CallbackInfo& info) {
  const auto memory = mallinfo2();
  return Napi::Number::New(info.Env(), static_cast<double>(memory.uordblks + memory.hblkhd));
}

Napi::Object exportFunctions(Napi::Env env, Napi::Object exports) {
  exports.Set("allocatedBytes", Napi::Function::New(env, allocatedBytes));
  return exports;
}

NODE_API_MODULE(allocated_memory, exportFunctions)

}  // namespace
