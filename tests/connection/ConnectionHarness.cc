#include "tests/connection/ConnectionHarness.h"

#include <algorithm>
#include <utility>

#include "tests/support/InMemoryPreferences.h"

namespace nvxcore::testing {

namespace {

uint64_t bigEndian(std::string_view bytes) {
  uint64_t value = 0;
  for (unsigned char c : bytes) value = value << 8 | c;
  return value;
}

std::string withLength(std::string_view payload) {
  std::string bytes;
  for (int shift : {24, 16, 8, 0}) bytes += static_cast<char>(payload.size() >> shift);
  return bytes.append(payload);
}

}  // namespace

std::vector<FramedRequest> requestsOf(std::string_view body) {
  std::vector<FramedRequest> requests;
  size_t at = 2 + 8;
  for (int i = 0; i < 4; ++i) at += 2 + bigEndian(body.substr(at, 2));
  while (at < body.size()) {
    FramedRequest request{static_cast<int32_t>(bigEndian(body.substr(at, 2))), {}};
    at += 2;
    if (request.id != kUserCookieRequest) {
      const size_t length = bigEndian(body.substr(at, 4));
      request.payload = body.substr(at + 4, length);
      at += 4 + length;
    }
    requests.push_back(std::move(request));
  }
  return requests;
}

std::vector<std::string> payloadsOf(std::string_view body) {
  std::vector<std::string> payloads;
  for (FramedRequest& request : requestsOf(body)) {
    if (request.id != kUserCookieRequest && request.id != kClientPropertiesRequest)
      payloads.push_back(std::move(request.payload));
  }
  return payloads;
}

std::string replyTo(std::string_view body,
                    const std::function<std::string(int requestID, std::string_view payload)>& answer,
                    const IdentityAnswer& identity) {
  std::string reply("\0\x18", 2);
  for (const FramedRequest& request : requestsOf(body)) {
    reply += static_cast<char>(request.id >> 8);
    reply += static_cast<char>(request.id);
    if (request.id == kUserCookieRequest) {
      for (int shift = 56; shift >= 0; shift -= 8) reply += static_cast<char>(identity.userCookie >> shift);
    } else if (request.id == kClientPropertiesRequest) {
      reply += withLength(identity.clientProperties);
    } else {
      reply += answer(request.id, request.payload);
    }
  }
  return reply;
}

std::string echoReply(std::string_view body, const IdentityAnswer& identity) {
  return replyTo(
      body, [](int, std::string_view payload) { return withLength(payload); }, identity);
}

void Outcomes::add(Outcome outcome) {
  {
    Lock lock(_lock);
    _outcomes.push_back(std::move(outcome));
  }
  _added.signal();
}

bool Outcomes::waitForCount(size_t count) {
  while (this->count() < count) {
    if (!_added.wait(kPatience)) return false;
  }
  return true;
}

std::vector<Outcomes::Outcome> Outcomes::all() const {
  Lock lock(_lock);
  return _outcomes;
}

size_t Outcomes::count() const {
  Lock lock(_lock);
  return _outcomes.size();
}

std::string Outcomes::summary() const {
  std::string text;
  for (const Outcome& outcome : all()) {
    if (!text.empty()) text += ' ';
    text += (outcome.answered ? "" : "!") + outcome.name;
  }
  return text;
}

std::shared_ptr<NVXDASHBlocksRequest> echoRequest(Outcomes& outcomes, const std::string& name,
                                                  int32_t requestID) {
  auto request = NVXDASHBlocksRequest::requestWithID(
      requestID,
      [name](utils::JavaDataOutput* output) {
        output->WriteInt(static_cast<int32_t>(name.size()));
        output->WriteBytes(name.data(), name.size());
      },
      [&outcomes, name](utils::JavaDataInput* input) {
        // Entering is the outcome; a reply that ends within the answer shows in the text.
        std::string echo;
        bool whole = false;
        try {
          const int32_t length = input->ReadInt();
          echo = input->ReadDataOfLength(static_cast<size_t>(std::max(length, 0))).string();
          whole = length >= 0;
        } catch (const utils::DataInputProvider::NotEnoughDataException&) {
          echo = "cut";
        }
        outcomes.add({name, whole && echo == name, Error()});
        return whole;
      });
  request->setAsyncRequestFailedHandler([&outcomes, name](const Error& error) {
    outcomes.add({name, false, error});
  });
  return request;
}

NVXDASHClientStateRef clientStateWithCookie(uint64_t userCookie) {
  auto state = NVXDASHClientState::initWithDefaults(std::make_shared<InMemoryPreferences>());
  state->updateUserCookie(userCookie);
  return state;
}

std::shared_ptr<NVXDASHConnectionImpl> makeConnection(const std::string& url,
                                                      std::shared_ptr<NVXx_HTKSessionFetcherService> service,
                                                      uint64_t userCookie) {
  if (!service) service = NVXDASHConnectionImpl::fetcherServiceWithUserAgent("test/1 (gzip)");
  return NVXDASHConnection::initWithServerURL(
      URL::withString(url), NVXDASHClientDescription::initWithLanguages({"en"}, 0, "c", "1.0"),
      clientStateWithCookie(userCookie), std::move(service), std::make_shared<NVXSystemClock>());
}

}  // namespace nvxcore::testing
