// The program, in a process of its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "support/PostBuilder.h"

namespace nvxcore::geoserver {
namespace {

class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    std::vector<char*> values{const_cast<char*>(NVXCORE_GEOSERVER_PROGRAM)};
    for (std::string& argument : arguments) values.push_back(argument.data());
    values.push_back(nullptr);
    _process = fork();
    if (_process == 0) {
      dup2(ends[1], STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      execv(values[0], values.data());
      _exit(127);
    }
    close(ends[1]);
    _output = fdopen(ends[0], "r");
  }
  ~Program() {
    if (_output) fclose(_output);
    if (_process > 0) {
      kill(_process, SIGKILL);
      waitpid(_process, nullptr, 0);
    }
  }

  std::string line() {
    char text[1024] = "";
    return std::fgets(text, sizeof(text), _output) ? text : std::string();
  }
  std::string rest() {
    std::string text;
    for (std::string next = line(); !next.empty(); next = line()) text += next;
    return text;
  }
  void signal(int number) { kill(_process, number); }
  // Of a program that has ended, or is about to.
  int exitStatus() {
    int status = 0;
    waitpid(_process, &status, 0);
    _process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  uint16_t port() {
    const std::string first = line();
    const size_t colon = first.rfind(':');
    return colon == std::string::npos ? 0 : static_cast<uint16_t>(std::stoul(first.substr(colon + 1)));
  }

 private:
  pid_t _process = -1;
  FILE* _output = nullptr;
};

TEST(ProgramTest, ServesAFolderUntilItIsSignalled) {
  for (const int ending : {SIGINT, SIGTERM}) {
    Program program({"--folder", NVXCORE_GEOSERVER_SAMPLE, "--log", "verbose", "--compress", "always",
                     "--country", "NZ", "--fail", "39:503:1"});
    RawClient client(program.port());
    WireMessage request(schemas::resourceRequest);
    request.add("url", "http://localhost/about.html");
    PostBuilder post;
    post.message(62, clientProperties(true)).message(39, request);
    client.send(postRequest(post.bytes()));
    EXPECT_TRUE(client.readReply().starts_with("HTTP/1.1 503 "));
    client.send(postRequest(post.bytes()));
    EXPECT_TRUE(client.readReply().starts_with("HTTP/1.1 200 "));
    program.signal(ending);
    const std::string output = program.rest();
    EXPECT_EQ(program.exitStatus(), 0);
    for (const char* line : {"new_legal_country: \"NZ\"", "content_type: \"text/html\"", ", compressed\n",
                             "-> 503", "served 2 exchanges"})
      EXPECT_NE(output.find(line), std::string::npos) << line << " is not in\n" << output;
  }
}

TEST(ProgramTest, CookiesOutliveARun) {
  std::string file = ::testing::TempDir() + "geoserver-cookies-XXXXXX";
  close(mkstemp(file.data()));
  int64_t cookie = 0;
  for (const bool again : {false, true}) {
    Program program({"--cookies", file});
    RawClient client(program.port());
    client.send(postRequest(PostBuilder(cookie).request(15).bytes()));
    const std::string reply = bodyOf(client.readReply());
    const int64_t issued = WireReader(std::string_view(reply).substr(4)).readLong();
    EXPECT_NE(issued, cookie);
    cookie = issued;
    program.signal(SIGTERM);
    EXPECT_EQ(program.rest().find("unknown cookie"), std::string::npos) << again;
  }
  unlink(file.c_str());
}

TEST(ProgramTest, ArgumentsAreChecked) {
  const std::vector<std::vector<std::string>> wrong = {
      {"--port", "65536"},
      {"--port", "x"},
      {"--port"},
      {"--log", "loud"},
      {"--compress", "-1"},
      {"--compress-as", "br"},
      {"--fail", "39:503"},
      {"--fail", "39:600:1"},
      {"--fail", "70000:503:1"},
      {"--folder", ""},
      {"--folder", "/no/such/folder"},
      {"--unheard-of"},
      {"--cookies", "/no/such/folder/file"},
  };
  for (const auto& arguments : wrong) {
    Program program(arguments);
    EXPECT_TRUE(program.rest().starts_with("geoserver: ")) << arguments[0];
    EXPECT_EQ(program.exitStatus(), 2) << arguments[0];
  }
  Program help({"--help"});
  EXPECT_TRUE(help.rest().starts_with("usage: geoserver"));
  EXPECT_EQ(help.exitStatus(), 0);
}

}  // namespace
}  // namespace nvxcore::geoserver
