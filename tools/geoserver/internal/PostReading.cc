#include "tools/geoserver/internal/PostReading.h"

#include <algorithm>

namespace nvxcore::geoserver {
namespace {

constexpr std::string_view kGeoField = "X-Geo";

void readGeoField(const HeaderList& headers, PostReading& reading) {
  const auto count = std::count_if(headers.begin(), headers.end(), [](const HeaderList::Field& field) {
    return equalsIgnoringCase(field.first, kGeoField);
  });
  if (count == 0) return;
  if (count > 1) reading.faults.emplace_back("more than one X-Geo field");
  try {
    reading.identity.locationDescriptors = locationDescriptors(headers.value(kGeoField));
  } catch (const WireError& error) {
    reading.faults.push_back("X-Geo: " + std::string(error.what()));
  }
}

}  // namespace

PostReading readPost(const Post& post, std::string_view body, const HeaderList& headers,
                     const RequestTypes& types, const IdentityOffice& office) {
  PostReading reading;
  reading.identity.cookie = office.standing(post.header.userCookie);
  readGeoField(headers, reading);
  for (size_t i = 0; i < post.requests.size(); ++i) {
    const PostRequest& request = post.requests[i];
    if (request.id == RequestTypes::kUserCookie) reading.identity.asksForCookie = true;
    const MessageType& type = types.find(request.id).message;
    if (!type.request) continue;
    std::string fault;
    try {
      WireReader payload(body.substr(request.payloadOffset, request.payloadLength));
      WireMessage message = WireMessage::parse(payload.readCountedBytes(), *type.request);
      fault = message.fault();
      if (fault.empty() && request.id == RequestTypes::kClientProperties)
        reading.identity.properties = std::move(message);
    } catch (const WireError& error) {
      fault = error.what();
    }
    if (!fault.empty()) {
      reading.faults.push_back("request " + std::to_string(i + 1) + " (" + std::to_string(request.id) + " " +
                               type.name + "): " + fault);
    }
  }
  return reading;
}

}  // namespace nvxcore::geoserver
