#include "tools/geoserver/StandardTypes.h"

#include <utility>

namespace nvxcore::geoserver {

void registerStandardTypes(RequestTypes& types, std::shared_ptr<IdentityOffice> office,
                           std::shared_ptr<const ContentFolder> folder) {
  RequestType cookie;
  cookie.message.name = "user cookie";
  cookie.readPayload = [](WireReader&) {};
  cookie.writeAnswer = [office](std::string_view, const Exchange&, WireWriter& answer) {
    answer.writeLong(office->issueCookie());
  };
  types.registerType(RequestTypes::kUserCookie, std::move(cookie));
  types.registerMessageType(
      RequestTypes::kClientProperties,
      {"client properties", &schemas::clientPropertiesRequest, &schemas::clientPropertiesResponse,
       [office](const MessageCall& call) { return office->answerProperties(call.message).serialised(); }});
  types.registerMessageType(
      RequestTypes::kResource,
      {"resource", &schemas::resourceRequest, &schemas::resourceResponse, [folder](const MessageCall& call) {
         return folder->answerResource(call.message, call.notes).serialised();
       }});
  types.registerMessageType(RequestTypes::kClientParameters,
                            {"client parameters", &schemas::clientParametersRequest,
                             &schemas::clientParametersResponse, [folder](const MessageCall& call) {
                               return folder->answerParameters(call.message, call.notes).serialised();
                             }});
  types.registerMessageType(RequestTypes::kUserEvent3,
                            {"user events", &schemas::userEvent3Request, &schemas::userEvent3Response,
                             [](const MessageCall&) { return std::string(); }});
}

}  // namespace nvxcore::geoserver
