// Reads typed properties of one JavaScript object.

#ifndef ADDON_NAPI_OBJECT_PROPERTY_HELPER_H_
#define ADDON_NAPI_OBJECT_PROPERTY_HELPER_H_

#include <napi.h>

#include <cstdint>
#include <string>

namespace napi {

// A short-lived reader on the stack of the method that was called from JavaScript. Every reader
// treats the property as required:
// - absent, own and inherited: Napi::TypeError "Missing property <name> on object <object name>";
// - of another type: Napi::TypeError "Wrong type for property <name> on object <object name>,
//   expected <type>";
// - a conversion that Node-API refuses: a plain Napi::Error; whatever a getter throws passes on.
// A property is read twice, once for its type and once for its value, so a getter runs twice.
class NapiObjectPropertyHelper {
 public:
  // `object` may be any value: a primitive is looked up as its boxed object. `objectName` is what
  // error texts call it.
  NapiObjectPropertyHelper(const Napi::CallbackInfo& info, Napi::Value object,
                           std::string objectName);

  // The own or inherited presence of a property, as JavaScript's `in` tells it.
  bool has(const std::string& name) const;

  std::string getAsString(const std::string& name) const;  // UTF-8
  bool getAsBoolean(const std::string& name) const;
  Napi::Object getAsObject(const std::string& name) const;
  Napi::Array getAsArray(const std::string& name) const;
  // The fraction is dropped, NaN and the infinities give 0, a value out of range keeps its low 32
  // bits.
  std::int32_t getAsInt(const std::string& name) const;

 private:
  bool has(Napi::String key) const;
  Napi::Value get(Napi::String key) const;
  // Checks presence, then the type through `isWanted`, and returns the property read anew.
  Napi::Value getChecked(const std::string& name, bool (*isWanted)(const Napi::Value&),
                         const char* typeWord) const;

  Napi::Env env_;
  Napi::Value object_;
  std::string objectName_;
};

}  // namespace napi

#endif  // ADDON_NAPI_OBJECT_PROPERTY_HELPER_H_
