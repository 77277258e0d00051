#include <mutex>

#include "tests/platform/http/support/HTTPTest.h"
#include "tests/platform/http/support/ScriptedStream.h"

namespace nvxcore::testing {
namespace {

using geoserver::Exchange;
using geoserver::GeoServer;
using geoserver::ReplyPlan;

/// Redirects, challenges and cookies.
class NegotiationTest : public HTTPTest {
 protected:
  Exchange lastExchange() { return server.exchanges().back(); }
  std::string redirect(int status, const std::string& to) {
    return server.url("/redirect/" + std::to_string(status) + "?to=" + to);
  }
  GeoServer server;
};

struct RedirectCase {
  int status;
  const char* method;
  const char* newMethod;
  bool keepsBody;
};

TEST_F(NegotiationTest, ARedirectIsFollowedAsUserAgentsDo) {
  for (const RedirectCase& each :
       {RedirectCase{301, "POST", "GET", false}, RedirectCase{302, "POST", "GET", false},
        RedirectCase{303, "POST", "GET", false}, RedirectCase{303, "PUT", "GET", false},
        RedirectCase{302, "PUT", "PUT", true}, RedirectCase{307, "POST", "POST", true},
        RedirectCase{308, "POST", "POST", true}}) {
    server.clear();
    URLRequest asked = request(redirect(each.status, "/echo?x=1"), each.method, "the body");
    asked.headers.set("Content-Type", "a/b");
    asked.headers.set("Authorization", "secret");
    const auto task = started(session().dataTaskWithRequest(asked));
    const TaskRecord record = finished(task);
    EXPECT_FALSE(record.error) << record.error.description();
    EXPECT_EQ(record.events.front() == "sent" ? record.events[1] : record.events.front(), "redirect");
    EXPECT_EQ(record.response.url().absoluteString(), server.url("/echo?x=1"));
    EXPECT_EQ(task->currentRequest().url, record.response.url());
    EXPECT_EQ(task->originalRequest().url, asked.url);
    EXPECT_EQ(record.body, each.keepsBody ? "the body" : "");
    EXPECT_EQ(lastExchange().method, each.newMethod) << each.status;
    EXPECT_EQ(lastExchange().headers.has("Content-Type"), each.keepsBody);
    EXPECT_EQ(lastExchange().headers.value("Authorization"), "secret");
  }
}

TEST_F(NegotiationTest, CredentialsStayWithTheirOrigin) {
  GeoServer other;
  URLRequest asked = request(redirect(302, other.url("/echo")));
  asked.headers.set("Authorization", "secret");
  EXPECT_FALSE(finished(started(session().dataTaskWithRequest(asked))).error);
  EXPECT_FALSE(other.exchanges().back().headers.has("Authorization"));
}

TEST_F(NegotiationTest, ARefusedRedirectIsTheReply) {
  delegate->onRedirect = [](const URLRequest&, RedirectHandler handler) { handler(std::nullopt); };
  const TaskRecord record = finished(get(redirect(302, "/echo")));
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(record.response.statusCode(), 302);
  EXPECT_EQ(server.exchanges().size(), 1u);
}

TEST_F(NegotiationTest, NoRedirectLeavesTheWeb) {
  for (const char* to : {"file:///etc/hostname", "data:,text", "gopher://h/"}) {
    server.handle("/away",
                  [to](const Exchange&) { return ReplyPlan::withStatus(302).withHeader("Location", to); });
    const TaskRecord record = finished(get(server.url("/away")));
    EXPECT_EQ(record.response.statusCode(), 302);
    EXPECT_TRUE(record.redirects.empty());
  }
}

TEST_F(NegotiationTest, AHostMayAnswerWithAnotherRequest) {
  delegate->onRedirect = [&](const URLRequest&, RedirectHandler handler) {
    handler(request(server.url("/headers"), "POST", "mine"));
  };
  EXPECT_FALSE(finished(get(redirect(302, "/echo"))).error);
  EXPECT_EQ(lastExchange().path, "/headers");
  EXPECT_EQ(*lastExchange().body, "mine");
}

TEST_F(NegotiationTest, RedirectsComeToAnEnd) {
  server.handle("/loop",
                [](const Exchange&) { return ReplyPlan::withStatus(302).withHeader("Location", "/loop"); });
  const TaskRecord record = finished(get(server.url("/loop")));
  EXPECT_EQ(record.error.code(), kURLErrorHTTPTooManyRedirects);
  EXPECT_EQ(record.redirects.size(), 20u);
}

TEST_F(NegotiationTest, AStreamIsAskedForAnewWhereItIsSentAgain) {
  int asked = 0;
  delegate->onStream = [&](BodyStreamHandler handler) {
    ++asked;
    handler(InputStream::streamWithData(Data::copy("streamed")));
  };
  EXPECT_EQ(
      finished(started(session().uploadTaskWithStreamedRequest(request(redirect(307, "/echo"), "POST"))))
          .body,
      "streamed");
  EXPECT_EQ(asked, 2);
  EXPECT_EQ(
      finished(started(session().uploadTaskWithStreamedRequest(request(redirect(303, "/echo"), "POST"))))
          .body,
      "");
  EXPECT_EQ(asked, 3);
  URLRequest own = request(redirect(307, "/echo"), "POST");
  own.bodyStream = InputStream::streamWithData(Data::copy("own"));
  EXPECT_EQ(finished(started(session().dataTaskWithRequest(own))).body, "streamed");
  EXPECT_EQ(asked, 4);
}

TEST_F(NegotiationTest, ACredentialIsTriedAndTriedAgain) {
  delegate->onChallenge = [](const AuthenticationChallenge& challenge, ChallengeHandler handler) {
    EXPECT_EQ(challenge.protectionSpace.host, "127.0.0.1");
    EXPECT_EQ(challenge.protectionSpace.authenticationMethod, kAuthenticationMethodHTTPBasic);
    EXPECT_FALSE(challenge.protectionSpace.realm.empty());
    const char* password = challenge.previousFailureCount ? "pass" : "wrong";
    handler(AuthChallengeDisposition::UseCredential,
            std::make_shared<URLCredential>(URLCredential{"user", password}));
  };
  const TaskRecord record = finished(get(server.url("/basic-auth/user/pass")));
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(record.response.statusCode(), 200);
  ASSERT_EQ(record.challenges.size(), 2u);
  EXPECT_EQ(record.challenges[1].previousFailureCount, 1);
}

TEST_F(NegotiationTest, WithoutACredentialTheChallengeIsTheReply) {
  EXPECT_EQ(finished(get(server.url("/basic-auth/user/pass"))).response.statusCode(), 401);
  delegate->onChallenge = [](const AuthenticationChallenge&, ChallengeHandler handler) {
    handler(AuthChallengeDisposition::Cancel, nullptr);
  };
  EXPECT_EQ(finished(get(server.url("/basic-auth/user/pass"))).error.code(), kURLErrorCancelled);
}

TEST_F(NegotiationTest, DigestIsAnsweredAndPreferred) {
  server.handle("/digest", [](const Exchange& exchange) {
    if (exchange.headers.has("Authorization")) return ReplyPlan::withBody(200, "text/plain", "in");
    return ReplyPlan::withStatus(401).withHeader(
        "WWW-Authenticate",
        "Basic realm=\"plain\", Digest realm=\"a \\\"quoted\\\", realm\", qop=\"auth,auth-int\", "
        "algorithm=SHA-256, nonce=\"7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v\", opaque=\"FQhe\"");
  });
  delegate->onChallenge = [](const AuthenticationChallenge& challenge, ChallengeHandler handler) {
    EXPECT_EQ(challenge.protectionSpace.authenticationMethod, kAuthenticationMethodHTTPDigest);
    EXPECT_EQ(challenge.protectionSpace.realm, "a \"quoted\", realm");
    handler(AuthChallengeDisposition::UseCredential,
            std::make_shared<URLCredential>(URLCredential{"Mufasa", "Circle of Life"}));
  };
  EXPECT_EQ(finished(get(server.url("/digest?x=1"))).body, "in");
  const std::string sent(lastExchange().headers.value("Authorization"));
  for (const char* part : {"Digest username=\"Mufasa\"", "uri=\"/digest?x=1\"", "qop=auth", "nc=00000001",
                           "opaque=\"FQhe\"", "algorithm=SHA-256", "realm=\"a \\\"quoted\\\", realm\""})
    EXPECT_NE(sent.find(part), std::string::npos) << sent;
}

/// Keeps what it is given, and gives out all of it.
class Jar final : public HTTPCookieStorage {
 public:
  std::vector<HTTPCookie> cookies() const override {
    std::lock_guard lock(_mutex);
    return _cookies;
  }
  void setCookie(const HTTPCookie& cookie) override {
    std::lock_guard lock(_mutex);
    _cookies.push_back(cookie);
  }
  void setCookies(const std::vector<HTTPCookie>& cookies, const URL&, const URL&) override {
    for (const HTTPCookie& cookie : cookies) setCookie(cookie);
  }
  void deleteCookie(const HTTPCookie&) override {}
  std::optional<std::vector<HTTPCookie>> cookiesForURL(const URL&) override { return cookies(); }
  void storeCookies(const std::vector<HTTPCookie>& cookies, HTTPSessionTask& task) override {
    setCookies(cookies, task.currentRequest().url, {});
  }
  void getCookiesForTask(HTTPSessionTask& task,
                         std::function<void(std::optional<std::vector<HTTPCookie>>)> handler) override {
    handler(cookiesForURL(task.currentRequest().url));
  }
  HTTPCookieAcceptPolicy cookieAcceptPolicy() const override { return HTTPCookieAcceptPolicy::Always; }
  void setCookieAcceptPolicy(HTTPCookieAcceptPolicy) override {}

 private:
  mutable std::mutex _mutex;
  std::vector<HTTPCookie> _cookies;
};

TEST_F(NegotiationTest, CookiesAreKeptAlsoFromRedirectsAndSent) {
  const auto jar = std::make_shared<Jar>();
  configuration.httpCookieStorage = jar;
  server.handle("/start", [](const Exchange&) {
    return ReplyPlan::withStatus(302)
        .withHeader("Location", "/echo")
        .withHeader("Set-Cookie", "from=redirect; Path=/");
  });
  delegate->onRedirect = [&](const URLRequest& next, RedirectHandler handler) {
    EXPECT_EQ(jar->cookies().size(), 1u);  // Before the event.
    handler(next);
  };
  EXPECT_FALSE(finished(get(server.url("/start"))).error);
  EXPECT_EQ(lastExchange().headers.value("Cookie"), "from=redirect");
  URLRequest without = request(server.url("/cookies/set?more=1"));
  without.shouldHandleCookies = false;
  EXPECT_FALSE(finished(started(session().dataTaskWithRequest(without))).error);
  EXPECT_FALSE(lastExchange().headers.has("Cookie"));
  EXPECT_EQ(jar->cookies().size(), 1u);
}

}  // namespace
}  // namespace nvxcore::testing
