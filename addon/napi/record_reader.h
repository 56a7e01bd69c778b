// Reads the properties of a JavaScript object into the members of a record.

#ifndef ADDON_NAPI_RECORD_READER_H_
#define ADDON_NAPI_RECORD_READER_H_

#include <napi.h>

#include <cstdint>
#include <string>
#include <utility>

#include "addon/napi/object_property_helper.h"

namespace napi {

// A short-lived reader on the stack of the method that was called from JavaScript. Properties are
// read in the order of the calls of read(), with the errors of NapiObjectPropertyHelper.
template <typename Record>
class RecordReader {
 public:
  // As of NapiObjectPropertyHelper.
  RecordReader(const Napi::CallbackInfo& info, Napi::Value object, std::string objectName)
      : properties_(info, object, std::move(objectName)) {}

  // The property has the type that the member's asks for.
  RecordReader& read(const std::string& name, std::string Record::*member) {
    record_.*member = properties_.getAsString(name);
    return *this;
  }
  RecordReader& read(const std::string& name, bool Record::*member) {
    record_.*member = properties_.getAsBoolean(name);
    return *this;
  }
  RecordReader& read(const std::string& name, std::int32_t Record::*member) {
    record_.*member = properties_.getAsInt(name);
    return *this;
  }

  const NapiObjectPropertyHelper& properties() const { return properties_; }
  // What was read so far.
  Record take() { return std::move(record_); }

 private:
  const NapiObjectPropertyHelper properties_;
  Record record_;
};

}  // namespace napi

#endif  // ADDON_NAPI_RECORD_READER_H_
