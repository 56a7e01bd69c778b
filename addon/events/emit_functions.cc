#include "addon/events/emit_functions.h"

#include <array>
#include <string>

#include "addon/napi/status.h"
#include "addon/napi/values.h"

namespace events {

namespace {

// A property whose value has no text in the interface is absent from its payload.
enum class Absence { kNever, kFirstProperty, kLastProperty };

struct EventShape {
  const char* name;
  std::vector<const char*> properties;
  Absence absence = Absence::kNever;
};

// By TesselEvent.
const std::vector<EventShape>& eventTable() {
  static const std::vector<EventShape> table = {
      {"streamAdded", {"type", "streamIndex", "csrc"}},
      {"streamRemoved", {"type", "streamIndex", "csrc"}},
      {"streamUpdated", {"type", "streamIndex", "csrc"}},
      {"gracefulEvent", {"event", "enable"}},
      {"callConnectionStatus", {"connected"}},
      {"screenShareStatus", {"status"}, Absence::kFirstProperty},
      {"contentReceive", {"isReceiving", "presenterGuid"}},
      {"callDisconnect", {"callId", "reason", "code"}},
      {"mediaMuteState", {"mediaType", "muted"}, Absence::kFirstProperty},
      {"micLevel", {"level"}},
      {"noRtpMedia", {"mediaType", "up"}, Absence::kFirstProperty},
      {"deviceChange", {"id", "type"}, Absence::kLastProperty},
      {"eventNotify", {"eventName", "eventBody"}},
      {"vspUpdateVOQI", {"VSPVOQI"}},
  };
  return table;
}

std::string joined(auto begin, auto end) {
  std::string list;
  for (auto item = begin; item != end; ++item)
    list += (item == begin ? "" : ", ") + std::string(*item);
  return list;
}

// The source of one event's function, for example
//   (emitter, type, streamIndex, csrc) =>
//     emitter.emit("streamAdded", { type, streamIndex, csrc })
std::string sourceOf(const EventShape& shape) {
  const auto begin = shape.properties.begin();
  const auto end = shape.properties.end();
  const std::string all = joined(begin, end);
  std::string payload = "{ " + all + " }";
  if (shape.absence != Absence::kNever) {
    const bool first = shape.absence == Absence::kFirstProperty;
    const std::string optional = first ? shape.properties.front() : shape.properties.back();
    const std::string rest = first ? joined(begin + 1, end) : joined(begin, end - 1);
    payload = optional + " === undefined ? { " + rest + " } : " + payload;
  }
  return "(emitter, " + all + ") => { emitter.emit(\"" + shape.name + "\", " + payload + "); }";
}

std::string sourceOfAll() {
  std::string source = "'use strict'; [";
  for (const EventShape& shape : eventTable()) source += sourceOf(shape) + ",\n";
  return source + "]";
}

}  // namespace

EmitFunctions::EmitFunctions(Napi::Env env) {
  napi_value functions = nullptr;
  napi::checkStatus(env, napi_run_script(env, napi::toJavascript(env, sourceOfAll()), &functions));
  napi::forEachElement(Napi::Value(env, functions), [this](Napi::Value function) {
    functions_.push_back(Napi::Persistent(function.As<Napi::Function>()));
  });
}

void EmitFunctions::emit(Napi::Object emitter, TesselEvent event,
                         std::initializer_list<napi_value> values) const {
  std::array<napi_value, 4> arguments = {emitter};
  std::copy(values.begin(), values.end(), arguments.begin() + 1);
  const Napi::Function function = functions_[static_cast<std::size_t>(event)].Value();
  const Napi::Env env = emitter.Env();
  napi::checkStatus(env, napi_call_function(env, emitter, function, 1 + values.size(),
                                            arguments.data(), nullptr));
}

}  // namespace events
