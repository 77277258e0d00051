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

/// Calls `each` with the ID and the payload of each request; the four header strings are passed over.
void forEachRequest(std::string_view body,
                    const std::function<void(std::string_view id, std::string_view payload)>& each) {
  size_t at = 2 + 8;
  for (int i = 0; i < 4; ++i) at += 2 + bigEndian(body.substr(at, 2));
  while (at < body.size()) {
    const size_t length = bigEndian(body.substr(at + 2, 4));
    each(body.substr(at, 2), body.substr(at + 6, length));
    at += 6 + length;
  }
}

}  // namespace

std::string replyTo(std::string_view body,
                    const std::function<std::string(int requestID, std::string_view payload)>& answer) {
  std::string reply("\0\x18", 2);
  forEachRequest(body, [&](std::string_view id, std::string_view payload) {
    reply.append(id);
    reply.append(answer(static_cast<int>(bigEndian(id)), payload));
  });
  return reply;
}

std::string echoReply(std::string_view body) {
  return replyTo(body, [](int, std::string_view payload) {
    std::string answer;
    for (int shift : {24, 16, 8, 0}) answer += static_cast<char>(payload.size() >> shift);
    return answer.append(payload);
  });
}

std::vector<std::string> payloadsOf(std::string_view body) {
  std::vector<std::string> payloads;
  forEachRequest(body, [&](std::string_view, std::string_view payload) { payloads.emplace_back(payload); });
  return payloads;
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
