// TesselWrapper: joining and leaving a call.

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"
#include "addon/napi/record_reader.h"
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
  using Server = tsl::TurnServerInfo;
  return napi::RecordReader<Server>(info, value, "TurnServerInfo")
      .read("protocol", &Server::protocol)
      .read("fqdn", &Server::fqdn)
      .read("address", &Server::address)
      .read("port", &Server::port)
      .read("username", &Server::username)
      .read("password", &Server::password)
      .read("priority", &Server::priority)
      .read("bandwidth", &Server::bandwidth)
      .take();
}

tsl::ConnectParams readConnectParams(const Napi::CallbackInfo& info, Napi::Value value) {
  using Params = tsl::ConnectParams;
  napi::RecordReader<Params> reader(info, value, "ConnectParams");
  reader.read("uri", &Params::uri)
      .read("endpointName", &Params::endpointName)
      .read("meetingGuid", &Params::meetingGuid)
      // Read a second time on purpose: a getter runs again, and the second value counts.
      .read("endpointName", &Params::endpointName)
      .read("maxBandwidth", &Params::maxBandwidth)
      .read("forceTurn", &Params::forceTurn)
      .read("enableRdc", &Params::enableRdc)
      .read("isVesperMeeting", &Params::isVesperMeeting)
      .read("enableClientDrivenLayouts", &Params::enableClientDrivenLayouts)
      .read("enableClientLayoutOrdering", &Params::enableClientLayoutOrdering)
      .read("meetingAttributes", &Params::meetingAttributes);
  Params params = reader.take();
  const auto& properties = reader.properties();
  napi::forEachElement(properties.getAsArray("meetingFeatures"), [&](Napi::Value feature) {
    params.meetingFeatures.insert(napi::toUtf8(feature));
  });
  napi::forEachElement(properties.getAsArray("gracefulEvents"), [&](Napi::Value event) {
    params.gracefulEvents.push_back(readGracefulEvent(info, event));
  });
  params.mediaStreamState = readMediaStreamState(info, properties.getAsObject("mediaStreamState"));
  napi::forEachElement(properties.getAsArray("turnServers"), [&](Napi::Value server) {
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
