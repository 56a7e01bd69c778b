// Turns JavaScript values into values and back.

#ifndef TEST_ENGINE_JS_VALUE_H_
#define TEST_ENGINE_JS_VALUE_H_

#include <napi.h>

#include "test/engine/value.h"

namespace scripted {

// undefined and null are absent; a Number without a fraction is an integer, as is a BigInt; every
// typed array is bytes; any other object is a record of its own enumerable properties. Throws
// std::invalid_argument for what has no counterpart.
Value fromJs(Napi::Value value);

// Absent becomes undefined; integers become Numbers where those are exact, BigInts beyond; bytes
// become a Buffer of their own.
Napi::Value toJs(Napi::Env env, const Value& value);

}  // namespace scripted

#endif  // TEST_ENGINE_JS_VALUE_H_
