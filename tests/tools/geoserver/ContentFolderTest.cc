// Resources and client parameters from a folder, asked for over a real connection.
#include "tools/geoserver/ContentFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "support/PostBuilder.h"

namespace nvxcore::geoserver {
namespace {

namespace fs = std::filesystem;

class ContentFolderTest : public ::testing::Test {
 protected:
  ContentFolderTest() {
    std::string pattern = (fs::temp_directory_path() / "geoserver-XXXXXX").string();
    outside = mkdtemp(pattern.data());
    folder = outside / "served";
    fs::create_directories(folder / "resources/icons");
    fs::create_directories(folder / "parameters");
    write(outside / "secret.txt", "secret");
    write(folder / "other.txt", "not a resource");
    write(folder / "resources/icons/pin.PNG", "png bytes");
    write(folder / "resources/a b.html", "<p>");
    write(folder / "resources/plain", "");
    ServerOptions options;
    options.folder = folder.string();
    server.emplace(options);
  }
  ~ContentFolderTest() override { fs::remove_all(outside); }

  static void write(const fs::path& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
  }

  WireMessage resource(const std::string& url, std::optional<uint64_t> hash = {}) {
    WireMessage request(schemas::resourceRequest);
    if (hash) request.add("hash", *hash);
    request.add("url", url);
    PostReply reply(*server, PostBuilder().message(39, request));
    const auto responses = reply.message(39, schemas::resourceResponse).messages("Response");
    EXPECT_EQ(responses.size(), 1u);
    EXPECT_EQ(responses.at(0).fault(), "");
    EXPECT_EQ(responses.at(0).text("url"), url);
    return responses.at(0);
  }

  std::vector<WireMessage> parameters(const WireMessage& request) {
    PostReply reply(*server, PostBuilder().message(75, request));
    return reply.message(75, schemas::clientParametersResponse).messages("parameter_group");
  }

  static WireMessage asking(std::initializer_list<std::pair<uint64_t, uint64_t>> typesAndHashes) {
    WireMessage request(schemas::clientParametersRequest);
    for (const auto& [type, hash] : typesAndHashes) {
      WireMessage group(schemas::parameterGroup);
      group.add("type", type);
      if (hash) group.add("hash", hash);
      request.add("parameter_group", group);
    }
    return request;
  }

  Exchange lastExchange() {
    const auto exchanges = server->exchanges();
    EXPECT_TRUE(server->waitForEndedCount(exchanges.size(), kPatience));
    return server->exchanges().back();
  }

  fs::path outside;
  fs::path folder;
  std::optional<GeoServer> server;
};

TEST_F(ContentFolderTest, ResourcesAreFoundByTheirUrl) {
  struct Case {
    const char* url;
    const char* body;
    const char* contentType;
  };
  const Case cases[] = {
      {"https://icons.example/icons/pin.PNG", "png bytes", "image/png"},
      {"http://icons.example:81/icons/pin.PNG?size=2#x", "png bytes", "image/png"},
      {"/icons/pin.PNG", "png bytes", "image/png"},
      {"icons/pin.PNG?u=http://x/y", "png bytes", "image/png"},
      {"x/../a", nullptr, nullptr},
      {"a%20b.html", "<p>", "text/html"},
      {"plain", "", "application/octet-stream"},
  };
  for (const Case& c : cases) {
    const WireMessage found = resource(c.url);
    EXPECT_EQ(found.number("response_code"), c.body ? 200u : 404u) << c.url;
    EXPECT_EQ(found.has("body"), c.body != nullptr);
    if (!c.body) continue;
    EXPECT_EQ(found.text("body"), c.body) << c.url;
    EXPECT_EQ(found.text("content_type"), c.contentType);
    EXPECT_EQ(found.number("hash"), contentHash(c.body));
  }
  // The published values of the hash for these.
  EXPECT_EQ(contentHash(""), 0xcbf29ce484222325u);
  EXPECT_EQ(contentHash("foobar"), 0x85944171f73967e8u);
}

TEST_F(ContentFolderTest, AnUnchangedResourceHasNoBody) {
  const uint64_t hash = resource("icons/pin.PNG").number("hash");
  const WireMessage same = resource("icons/pin.PNG", hash);
  EXPECT_EQ(same.number("response_code"), 304u);
  EXPECT_EQ(same.number("hash"), hash);
  EXPECT_FALSE(same.has("body"));
  EXPECT_EQ(resource("icons/pin.PNG", hash + 1).number("response_code"), 200u);
  EXPECT_EQ(resource("missing", 0).number("response_code"), 404u);
  write(folder / "resources/icons/pin.PNG", "other bytes");
  const WireMessage changed = resource("icons/pin.PNG", hash);
  EXPECT_EQ(changed.number("response_code"), 200u);
  EXPECT_EQ(changed.text("body"), "other bytes");
}

TEST_F(ContentFolderTest, NothingLeadsOutOfTheFolder) {
  fs::create_symlink(outside / "secret.txt", folder / "resources/link.txt");
  fs::create_directory_symlink(outside, folder / "resources/up");
  fs::create_symlink(folder / "resources/a b.html", folder / "resources/inside.html");
  ASSERT_EQ(mkfifo((folder / "resources/pipe").c_str(), 0600), 0);
  const std::string secret = (outside / "secret.txt").string();
  const std::string urls[] = {"../other.txt",
                              "icons/../../other.txt",
                              "%2e%2e/other.txt",
                              "..%2Fother.txt",
                              "http://host/../../secret.txt",
                              "http://host/..%2f..%2fsecret.txt",
                              "file://" + secret,
                              secret,
                              "//" + secret,
                              "%2F" + secret,
                              "./plain",
                              "icons//pin.PNG",
                              "plain%00.txt",
                              "",
                              "/",
                              "http://host",
                              "icons",
                              "icons/",
                              "link.txt",
                              "up/secret.txt",
                              "pipe",
                              "data:image/png;base64,AA",
                              std::string(5000, 'n')};
  for (const std::string& url : urls) {
    const WireMessage refused = resource(url);
    EXPECT_EQ(refused.number("response_code"), 404u) << url;
    EXPECT_FALSE(refused.has("body")) << url;
  }
  EXPECT_EQ(resource("inside.html").text("body"), "<p>");
  resource("up/secret.txt");
  EXPECT_EQ(lastExchange().notes,
            std::vector<std::string>{"resources/up/secret.txt leads out of the folder"});
}

TEST_F(ContentFolderTest, ParametersComeInTheOrderAskedFor) {
  write(folder / "parameters/logging.txt", "type: 16 logging { max_events_saved_per_proto: 3 }");
  write(folder / "parameters/settings.pb", fromHex("08 03 11 07 00 00 00 00 00 00 00 2A 02 0A 00"));
  write(folder / "parameters/README", "passed over");
  const auto fresh = parameters(asking({{3, 0}, {2, 0}, {16, 0}}));
  ASSERT_EQ(fresh.size(), 3u);
  EXPECT_EQ(fresh[0].serialised(), fromHex("08 03 11 07 00 00 00 00 00 00 00 2A 02 0A 00"));
  EXPECT_EQ(fresh[1].serialised(), fromHex("08 02"));  // of a type without a file: as if unchanged
  EXPECT_EQ(fresh[2].message("logging").number("max_events_saved_per_proto"), 3u);
  const uint64_t hash = fresh[2].number("hash");
  EXPECT_NE(hash, 0u);

  const auto again = parameters(asking({{16, hash}, {3, 8}}));
  ASSERT_EQ(again.size(), 2u);
  EXPECT_EQ(again[0].serialised(), fromHex("08 10"));
  EXPECT_TRUE(again[1].has("server_setting"));
  EXPECT_EQ(parameters(asking({})).size(), 2u);

  write(folder / "parameters/logging.txt", "type: 16 logging { max_events_saved_per_proto: 4 }");
  EXPECT_NE(parameters(asking({{16, hash}})).at(0).number("hash"), hash);
}

TEST_F(ContentFolderTest, FilesThatCannotBeReadAreNoted) {
  write(folder / "parameters/a.txt", "type: 16\nlogging { no_such: 1 }");
  write(folder / "parameters/b.pb", fromHex("08"));
  write(folder / "parameters/c.txt", "logging { }");
  write(folder / "parameters/d.txt", "type: 3");
  EXPECT_EQ(parameters(asking({})).size(), 1u);
  EXPECT_EQ(lastExchange().notes,
            (std::vector<std::string>{"parameters/a.txt: line 2: LoggingParameters has no field no_such",
                                      "parameters/b.pb: message ends within a field",
                                      "parameters/c.txt: no type"}));
}

TEST_F(ContentFolderTest, FoldersThatAreNotThere) {
  ServerOptions options;
  options.folder = (outside / "missing").string();
  EXPECT_THROW(GeoServer{options}, std::system_error);
  options.folder = (outside / "secret.txt").string();
  EXPECT_THROW(GeoServer{options}, std::system_error);
  server.emplace();
  EXPECT_EQ(resource("/etc/passwd").number("response_code"), 404u);
  ASSERT_EQ(parameters(asking({{16, 5}})).size(), 1u);
  fs::create_directory(outside / "empty");
  options.folder = (outside / "empty").string();
  server.emplace(options);
  EXPECT_EQ(resource("plain").number("response_code"), 404u);
  EXPECT_TRUE(parameters(asking({})).empty());
}

TEST(SampleFolderTest, EveryFileOfItIsGood) {
  std::vector<std::string> notes;
  const auto groups = ContentFolder(NVXCORE_GEOSERVER_SAMPLE).parameterGroups(notes);
  EXPECT_TRUE(notes.empty()) << notes[0];
  EXPECT_EQ(groups.size(), 3u);
}

}  // namespace
}  // namespace nvxcore::geoserver
