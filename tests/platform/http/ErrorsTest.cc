#include <cerrno>

#include "nvxcore/platform/Value.h"
#include "nvxcore/platform/linux/TransferErrors.h"
#include "tests/platform/http/support/HTTPTest.h"
#include "tests/platform/http/support/RawServer.h"

namespace nvxcore::testing {
namespace {

using geoserver::CertificateKind;
using geoserver::Exchange;
using geoserver::GeoServer;
using geoserver::ReplyPlan;
using geoserver::ServerOptions;

struct Fault {
  const char* name;
  int64_t code;
  ReplyPlan plan;
};

void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }

std::vector<Fault> faults(bool http2) {
  const auto raw = [](std::string bytes) { return ReplyPlan::raw(std::move(bytes), ReplyPlan::After::drop); };
  const auto body = [] { return ReplyPlan::withBody(200, "a/b", "0123456789"); };
  const std::string head = "HTTP/1.1 200 OK\r\n";
  std::vector<Fault> faults = {
      {"CloseBeforeReply", kURLErrorNetworkConnectionLost, ReplyPlan().thenClose()},
      {"ResetBeforeReply", kURLErrorNetworkConnectionLost, ReplyPlan().thenReset()},
      {"CloseInBody", kURLErrorNetworkConnectionLost, body().thenBytes(4).thenClose()},
      {"ResetInBody", kURLErrorNetworkConnectionLost, body().thenBytes(4).thenReset()},
      {"UnknownCoding", 0, body().withHeader("Content-Encoding", "identity")},
      {"BadGzip", kURLErrorCannotDecodeRawData, body().withHeader("Content-Encoding", "gzip")},
      {"OtherCoding", kURLErrorCannotDecodeContentData, body().withHeader("Content-Encoding", "unheard-of")},
  };
  if (http2) {
    faults.push_back({"StreamReset", kURLErrorNetworkConnectionLost, ReplyPlan().thenStreamReset(2)});
    faults.push_back(
        {"StreamResetInBody", kURLErrorNetworkConnectionLost, body().thenBytes(4).thenStreamReset(2)});
    faults.push_back({"StreamRefused", kURLErrorNetworkConnectionLost, ReplyPlan().thenStreamReset(7)});
    faults.push_back({"GoAwayRefused", kURLErrorNetworkConnectionLost, ReplyPlan().thenGoAway(0, true)});
    faults.push_back({"GoAwayServed", 0, body().thenGoAway(0, false)});
    faults.push_back(
        {"Garbage", kURLErrorNetworkConnectionLost, raw("this is no frame of HTTP/2, certainly")});
  } else {
    faults.push_back({"Garbage", kURLErrorCannotParseResponse, raw("this is no HTTP\r\n\r\n")});
    faults.push_back({"LongLine", kURLErrorDataLengthExceedsMaximum,
                      raw(head + "X-Long: " + std::string(1 << 20, 'l') + "\r\n\r\n")});
    std::string many = head;
    for (int i = 0; i < 20'000; ++i)
      many += "X-Many-" + std::to_string(i) + ": 0123456789012345678901234567890\r\n";
    faults.push_back({"LongHead", kURLErrorDataLengthExceedsMaximum, raw(many + "\r\n")});
    faults.push_back({"CutHead", kURLErrorNetworkConnectionLost, raw(head + "Content-Le")});
    faults.push_back({"BadChunk", kURLErrorCannotParseResponse,
                      raw(head + "Transfer-Encoding: chunked\r\n\r\nzz\r\nabc\r\n")});
    faults.push_back({"CutChunk", kURLErrorNetworkConnectionLost,
                      raw(head + "Transfer-Encoding: chunked\r\n\r\n5\r\nab")});
    faults.push_back({"BadLength", kURLErrorBadServerResponse, raw(head + "Content-Length: -5\r\n\r\n")});
  }
  return faults;
}

class ReplyErrorTest : public HTTPTest, public ::testing::WithParamInterface<std::pair<bool, Fault>> {};

std::vector<std::pair<bool, Fault>> allFaults() {
  std::vector<std::pair<bool, Fault>> all;
  for (const bool http2 : {false, true}) {
    for (Fault& fault : faults(http2)) all.emplace_back(http2, std::move(fault));
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Faults, ReplyErrorTest, ::testing::ValuesIn(allFaults()), [](const auto& info) {
  return std::string(info.param.second.name) + (info.param.first ? "_http2" : "_http1");
});

TEST_P(ReplyErrorTest, HasItsCodeAndLeavesTheSessionInOrder) {
  const auto& [http2, fault] = GetParam();
  ServerOptions options;
  options.tls = http2;
  GeoServer server(options);
  configuration.caFile = server.caFile();
  server.enqueue(fault.plan);
  const TaskRecord record = finished(post(server.url("/fault"), "body"));
  EXPECT_EQ(record.error.code(), fault.code) << record.error.description();
  if (fault.code) {
    EXPECT_EQ(record.error.domain(), kURLErrorDomain);
    EXPECT_EQ(record.error.userInfo().get(kURLErrorFailingURLErrorKey).url(),
              URL::withString(server.url("/fault")));
    ASSERT_TRUE(record.error.userInfo().get(kURLErrorFailingURLStringErrorKey).string());
    EXPECT_EQ(*record.error.userInfo().get(kURLErrorFailingURLStringErrorKey).string(), server.url("/fault"));
  }
  EXPECT_EQ(server.exchanges().size(), 1u);
  EXPECT_FALSE(finished(post(server.url("/echo"), "next")).error);
}

class ErrorTest : public HTTPTest {
 protected:
  int64_t codeOf(std::string_view url) { return finished(get(url)).error.code(); }
};

TEST_F(ErrorTest, OfRequestsThatCannotBeCarriedOut) {
  EXPECT_EQ(codeOf(""), kURLErrorBadURL);
  EXPECT_EQ(codeOf("/no/scheme"), kURLErrorBadURL);
  EXPECT_EQ(codeOf("http:///no/host"), kURLErrorBadURL);
  EXPECT_EQ(codeOf("http://b\u00fccher.example/"), kURLErrorBadURL);
  EXPECT_EQ(codeOf("gopher://127.0.0.1/"), kURLErrorUnsupportedURL);
  EXPECT_EQ(codeOf("http://no-such-name.invalid/"), kURLErrorCannotFindHost);
  EXPECT_EQ(
      finished(started(session().dataTaskWithRequest(request("http://127.0.0.1/", "GET / HTTP/1.1\r\nX:"))))
          .error.code(),
      kURLErrorBadURL);
}

TEST_F(ErrorTest, OfConnecting) {
  const std::string gone = RawServer().url("/");
  EXPECT_EQ(codeOf(gone), kURLErrorCannotConnectToHost);
  // A machine without a route can't be counted on.
  for (const int number : {ENETUNREACH, ENETDOWN, EHOSTUNREACH}) {
    CurlFailure failure;
    failure.code = CURLE_COULDNT_CONNECT;
    failure.systemError = number;
    EXPECT_EQ(transferError(failure, {}).code(), kURLErrorNotConnectedToInternet);
  }
}

TEST_F(ErrorTest, PlainHTTPCanBeRefused) {
  configuration.allowsPlainHTTP = false;
  EXPECT_EQ(codeOf("http://127.0.0.1/"), kURLErrorAppTransportSecurityRequiresSecureConnection);
}

TEST_F(ErrorTest, OfCertificates) {
  const auto code = [&](ServerOptions options, bool trusted) {
    options.tls = true;
    GeoServer server(options);
    HTTPSessionConfiguration settings;
    if (trusted) settings.caFile = server.caFile();
    const auto task = makeSession(settings)->dataTaskWithRequest(request(server.url("/echo")));
    const int64_t result = finished(started(task)).error.code();
    EXPECT_TRUE(result == 0 || server.exchanges().empty());
    return result;
  };
  ServerOptions options;
  EXPECT_EQ(code(options, true), 0);
  EXPECT_EQ(code(options, false), kURLErrorServerCertificateHasUnknownRoot);
  options.certificate = CertificateKind::expired;
  EXPECT_EQ(code(options, true), kURLErrorServerCertificateHasBadDate);
  options.certificate = CertificateKind::wrongHost;
  EXPECT_EQ(code(options, true), kURLErrorServerCertificateUntrusted);
  options.certificate = CertificateKind::good;
  options.onlyOutdatedTls = true;
  EXPECT_EQ(code(options, true), kURLErrorSecureConnectionFailed);
}

}  // namespace
}  // namespace nvxcore::testing
