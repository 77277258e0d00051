#include "examples/demo/Demo.h"

#include <algorithm>

#include "nvxcore/foundation/base/NVXSystemClock.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"
#include "tools/geoserver/RequestTypes.h"

namespace demo {

using namespace nvxcore;

Journal journal;
Checks checks;

void Journal::time() { std::printf("%8.1f ms  ", seconds() * 1e3); }

void Journal::line(const char* format, ...) {
  std::lock_guard<std::mutex> lock(_mutex);
  time();
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  std::printf("\n");
  std::fflush(stdout);
}

void Journal::text(const std::string& lines) {
  std::lock_guard<std::mutex> lock(_mutex);
  time();
  for (const char& c : lines) {
    std::putchar(c);
    if (c == '\n' && &c != &lines.back()) std::printf("             ");
  }
  std::fflush(stdout);
}

void Checks::expect(bool held, const std::string& what) {
  std::lock_guard<std::mutex> lock(_mutex);
  if (held) return;
  ++_failures;
  std::printf("             NOT AS IT SHOULD BE: %s\n", what.c_str());
}

std::shared_ptr<NVXDASHBlocksRequest> Client::request(const std::string& name) {
  const double made = journal.seconds();
  auto request = NVXDASHBlocksRequest::requestWithID(
      kEchoRequest,
      [name](utils::JavaDataOutput* output) {
        output->WriteInt(static_cast<int32_t>(name.size()));
        output->WriteBytes(name.data(), name.size());
      },
      [this, name, made](utils::JavaDataInput* input) {
        const int32_t length = input->ReadInt();
        const Data echo = input->ReadDataOfLength(static_cast<size_t>(std::max(length, 0)));
        checks.expect(echo.view() == name, "the answer to " + name + " is its echo");
        journal.line("  answer to %-14s after %6.1f ms", name.c_str(), (journal.seconds() - made) * 1e3);
        outcome(name);
        return true;
      });
  request->setAsyncRequestFailedHandler([this, name](const Error& error) {
    checks.expect(false, name + " failed: " + error.description());
    outcome(name);
  });
  ++_handedIn;
  return request;
}

bool Client::waitForOutcomes(size_t count) {
  while (outcomes() < count) {
    if (!_arrived.wait(kPatience)) return false;
  }
  return true;
}

size_t Client::outcomes() {
  std::lock_guard<std::mutex> lock(_mutex);
  return _outcomes.size();
}

void Client::checkEachHasOneOutcome() {
  std::lock_guard<std::mutex> lock(_mutex);
  checks.equal(_outcomes.size(), _handedIn, "requests with an outcome");
  for (const auto& [name, count] : _outcomes) checks.equal(count, 1, "outcomes of " + name);
}

void Client::outcome(const std::string& name) {
  {
    std::lock_guard<std::mutex> lock(_mutex);
    ++_outcomes[name];
  }
  _arrived.signal();
}

MainThreadIsBusy::MainThreadIsBusy() {
  Queue::main()->post([over = _over] { over->wait(); });
}
MainThreadIsBusy::~MainThreadIsBusy() { _over->signal(); }

size_t callersRequests(const geoserver::Exchange& exchange) {
  using geoserver::RequestTypes;
  return static_cast<size_t>(std::count_if(
      exchange.post.requests.begin(), exchange.post.requests.end(), [](const geoserver::PostRequest& sent) {
        return sent.id != RequestTypes::kUserCookie && sent.id != RequestTypes::kClientProperties;
      }));
}

std::shared_ptr<NVXDASHConnectionImpl> connectTo(const std::string& url) {
  auto service = NVXDASHConnectionImpl::fetcherServiceWithUserAgent(
      NVXDASHConnectionImpl::userAgentForBundle(nullptr, "demo/1"));
  return NVXDASHConnection::initWithServerURL(
      URL::withString(url), NVXDASHClientDescription::initWithLanguages({"en"}, 0, "demo", "1.0"),
      NVXDASHClientState::defaultState(), service, std::make_shared<NVXSystemClock>());
}

}  // namespace demo
