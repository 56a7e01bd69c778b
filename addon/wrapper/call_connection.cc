// TesselWrapper: joining and leaving a call.

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"
#include "addon/napi/values.h"
#include "addon/wrapper/media_stream_state.h"
#include "addon/wrapper/tessel_wrapper.h"

namespace wrapper {
namespace {

std::pair<std::string, bool> readGracefulEvent(const Napi::CallbackInfo& info, Napi::Value value) {
  const napi::NapiObjectPropertyHelper helper(info, value, "GracefulEventState");
  const bool enabled = helper.getAsBoolean("enabled");
  return {helper.getAsString("event"), enabled};
}

tsl::TurnServerInfo readTurnServer(const Napi::CallbackInfo& info, Napi::Value value) {
  const napi::NapiObjectPropertyHelper helper(info, value, "TurnServerInfo");
  tsl::TurnServerInfo server;
  server.protocol = helper.getAsString("protocol");
  server.fqdn = helper.getAsString("fqdn");
  server.address = helper.getAsString("address");
  server.port = helper.getAsInt("port");
  server.username = helper.getAsString("username");
  server.password = helper.getAsString("password");
  server.priority = helper.getAsInt("priority");
  server.bandwidth = helper.getAsInt("bandwidth");
  return server;
}

tsl::ConnectParams readConnectParams(const Napi::CallbackInfo& info, Napi::Value value) {
  const napi::NapiObjectPropertyHelper helper(info, value, "ConnectParams");
  tsl::ConnectParams params;
  params.uri = helper.getAsString("uri");
  params.endpointName = helper.getAsString("endpointName");
  params.meetingGuid = helper.getAsString("meetingGuid");
  // Read a second time on purpose: a getter runs again, and the second value counts.
  params.endpointName = helper.getAsString("endpointName");
  params.maxBandwidth = helper.getAsInt("maxBandwidth");
  params.forceTurn = helper.getAsBoolean("forceTurn");
  params.enableRdc = helper.getAsBoolean("enableRdc");
  params.isVesperMeeting = helper.getAsBoolean("isVesperMeeting");
  params.enableClientDrivenLayouts = helper.getAsBoolean("enableClientDrivenLayouts");
  params.enableClientLayoutOrdering = helper.getAsBoolean("enableClientLayoutOrdering");
  params.meetingAttributes = helper.getAsString("meetingAttributes");
  napi::forEachElement(helper.getAsArray("meetingFeatures"), [&](Napi::Value feature) {
    params.meetingFeatures.insert(napi::toUtf8(feature));
  });
  napi::forEachElement(helper.getAsArray("gracefulEvents"), [&](Napi::Value event) {
    params.gracefulEvents.push_back(readGracefulEvent(info, event));
  });
  params.mediaStreamState = readMediaStreamState(info, helper.getAsObject("mediaStreamState"));
  napi::forEachElement(helper.getAsArray("turnServers"), [&](Napi::Value server) {
    params.turnServers.push_back(readTurnServer(info, server));
  });
  return params;
}

}  // namespace

void TesselWrapper::connectCall(const Napi::CallbackInfo& info) {
  manager_->ConnectCall(readConnectParams(info, napi::onlyObject(info)));
}

void TesselWrapper::disconnectCall(const Napi::CallbackInfo&) { manager_->DisconnectCall(); }

}  // namespace wrapper
