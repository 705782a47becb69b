#include "storage-server/StorageServer.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <stdexcept>
#include <thread>

#include "storage-server/Descriptor.h"
#include "support/Files.h"
#include "support/TempFolder.h"

namespace Moravel::Player {

using Moravel::Test::TempFolder;
using Moravel::Test::WriteFile;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

Descriptor Connect(uint16_t port) {
  Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return socket;
}

const std::string kRequest = "HEAD /tracks/7 HTTP/1.1\r\nHost: localhost\r\n\r\n";

// A connection that is kept after its first answer has begun to come.
Descriptor ConnectClient(uint16_t port) {
  Descriptor socket = Connect(port);
  ::send(socket.Get(), kRequest.data(), kRequest.size(), MSG_NOSIGNAL);
  char byte = 0;
  ::recv(socket.Get(), &byte, 1, 0);
  return socket;
}

// Sends requests (the last one closes the connection) and returns all that comes.
std::string Ask(const Descriptor& socket, const std::string& requests,
                const std::function<void()>& onData = {}) {
  ::send(socket.Get(), requests.data(), requests.size(), MSG_NOSIGNAL);
  std::string answer;
  char bytes[65536];
  for (ssize_t size = 0; (size = ::recv(socket.Get(), bytes, sizeof bytes, 0)) > 0;) {
    answer.append(bytes, static_cast<size_t>(size));
    if (onData)
      onData();
  }
  return answer;
}

std::string Ask(uint16_t port, const std::string& requests,
                const std::function<void()>& onData = {}) {
  return Ask(Connect(port), requests, onData);
}

std::string Get(const std::string& lines = {}, const std::string& target = "GET /tracks/7",
                const std::string& host = "Host: 127.0.0.1:80\r\n") {
  return target + " HTTP/1.1\r\n" + host + "Connection: close\r\n" + lines + "\r\n";
}

std::string Line(const std::string& name, const std::string& value) {
  return name + ": " + value + "\r\n";
}

// How many descriptors this process may have, until the end of the scope.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t limit) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit now{std::min(limit, before_.rlim_max), before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &now);
  }
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

class StorageServerTest : public testing::Test {
 protected:
  StorageServerTest() {
    WriteFile(file_, std::string("0123456789"));
    server_->AddTrack(7, file_);
  }
  // The value of a header line of the track.
  std::string Header(const std::string& name) {
    const std::string answer = Ask(server_->Port(), Get({}, "HEAD /tracks/7"));
    const size_t at = answer.find(name + ": ") + name.size() + 2;
    return answer.substr(at, answer.find("\r\n", at) - at);
  }

  const TempFolder folder_;
  const std::filesystem::path file_ = folder_ / "track";
  std::unique_ptr<StorageServer> server_ =
      std::make_unique<StorageServer>(StorageServer::Options());
};

TEST_F(StorageServerTest, AnswersByRangesAndValidators) {
  const std::string etag = Header("ETag"), date = Header("Last-Modified");
  const std::string range = "Range: bytes=3-5\r\n", past = "Thu, 01 Jan 1970 00:00:00 GMT";
  const struct {
    std::string lines, status, part, body;
    std::string target = "GET /tracks/7";
  } rows[] = {
      {"", "200", "", "0123456789"},
      {"Range: BYTES=9-9\r\n", "206", "bytes 9-9/10", "9"},
      {"Range: bytes=8-99999999999999999999999\r\n", "206", "bytes 8-9/10", "89"},
      {"Range: bytes=-3\r\n", "206", "bytes 7-9/10", "789"},
      {"Range: bytes=10-\r\n", "416", "bytes */10", ""},
      {"Range: bytes=5-3\r\n", "200", "", "0123456789"},
      {"Range: bytes=1-2,4-5\r\n", "200", "", "0123456789"},
      {range + "If-Match: \"other\", " + etag + "\r\n", "206", "bytes 3-5/10", "345"},
      {range + "If-Match: W/" + etag + "\r\n", "412", "", ""},
      {range + "If-Unmodified-Since: " + date + "\r\n", "206", "bytes 3-5/10", "345"},
      {range + "If-Unmodified-Since: " + past + "\r\n", "412", "", ""},
      {range + "If-Range: \"other\"\r\n", "200", "", "0123456789"},
      {range, "405", "", "", "POST /tracks/7"},
      {"", "404", "", "", "GET /tracks/8"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.target + " " + row.lines);
    const std::string answer = Ask(server_->Port(), Get(row.lines, row.target));
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 " + row.status));
    EXPECT_THAT(answer, HasSubstr(row.part.empty() ? "" : "Content-Range: " + row.part + "\r\n"));
    EXPECT_THAT(answer, EndsWith("\r\n\r\n" + row.body));
  }
  const std::string both =
      Ask(server_->Port(), "GET /tracks/7 HTTP/1.1\r\nHost: [::1]\r\n\r\n" + Get());
  EXPECT_NE(both.find("HTTP/1.1 200"), both.rfind("HTTP/1.1 200")) << "the connection is kept";

  WriteFile(file_, std::string("behind...."));
  EXPECT_THAT(Ask(server_->Port(), Get("If-Match: " + etag + "\r\n")), StartsWith("HTTP/1.1 412"));
  EXPECT_THAT(Ask(server_->Port(), Get()), EndsWith("behind...."));
}

TEST_F(StorageServerTest, ServesNothingElseThanWhatWasAdded) {
  WriteFile(folder_ / "other", std::string("a secret"));
  std::filesystem::remove(file_);
  std::filesystem::create_symlink(folder_ / "other", file_);
  EXPECT_THAT(Ask(server_->Port(), Get()), EndsWith("0123456789"));

  const int64_t a = server_->AddTrack(folder_ / "other"), b = server_->AddTrack(file_);
  EXPECT_GT(std::min(a, b), int64_t{1} << 32) << "one in 2^30 is smaller";
  EXPECT_NE(a, b);
  EXPECT_THAT(Ask(server_->Port(), Get({}, "GET /tracks/" + std::to_string(a))),
              EndsWith(std::string("a secret")));
  for (const char* notThere : {"/", "/tracks/", "/tracks/1", "/tracks/7/", "/tracks/../etc/passwd"})
    EXPECT_THAT(Ask(server_->Port(), Get({}, std::string("GET ") + notThere)),
                StartsWith("HTTP/1.1 404"));
}

TEST_F(StorageServerTest, AnswersOnLoopbackToNamesOfTheMachineAlone) {
  for (const char* good : {"127.0.0.1", "127.0.0.1:8080", "127.8.9.1", "LocalHost:1", "[::1]:80"})
    EXPECT_THAT(Ask(server_->Port(), Get({}, "GET /tracks/7", Line("Host", good))),
                StartsWith("HTTP/1.1 200"))
        << good;
  for (const char* bad : {"", "evil.example", "127.0.0.1.evil.example:80", "localhost.evil.example",
                          "128.0.0.1", "[::2]", "[", "[::1", ":80"})
    EXPECT_THAT(Ask(server_->Port(), Get({}, "GET /tracks/7", Line("Host", bad))),
                StartsWith("HTTP/1.1 421"))
        << bad;
  EXPECT_THAT(Ask(server_->Port(), Get({}, "GET /tracks/7", "")), StartsWith("HTTP/1.1 400"));
}

TEST_F(StorageServerTest, TellsThatDescriptorsAreUsedUp) {
  const Descriptor socket = ConnectClient(server_->Port());
  std::string answer, error;
  {
    const DescriptorLimit limit(0);  // the sanitizer's checks of matchers need some as well
    answer = Ask(socket, Get());
  }
  EXPECT_THAT(answer, HasSubstr("HTTP/1.1 503"));
  EXPECT_THAT(Ask(server_->Port(), Get()), StartsWith("HTTP/1.1 200"));
  try {
    const DescriptorLimit limit(64);
    server_->AddTrack(file_);
  } catch (const std::runtime_error& refused) {
    error = refused.what();
  }
  EXPECT_THAT(error, AllOf(HasSubstr(file_.string()), HasSubstr("may have 64 descriptors")));
}

// With the first answer to a track, a connection is one of a client, which is not cut for others.
TEST_F(StorageServerTest, IdleStrangersKeepNobodyOutAndHoldNothingUp) {
  const DescriptorLimit limit(4096);
  const Descriptor client = ConnectClient(server_->Port());
  std::vector<Descriptor> idle;
  for (size_t i = 0; i < 1500; ++i) {
    idle.push_back(Connect(server_->Port()));
    ::send(idle.back().Get(), kRequest.data(), i % 2, MSG_NOSIGNAL);
  }
  EXPECT_THAT(Ask(server_->Port(), Get()), StartsWith("HTTP/1.1 200"));
  EXPECT_THAT(Ask(client, Get()), HasSubstr("HTTP/1.1 200"));
  // As many clients as there can be, and more.
  for (int i = 0; i < 1000; ++i) {
    idle.push_back(Connect(server_->Port()));
    ::send(idle.back().Get(), kRequest.data(), kRequest.size(), MSG_NOSIGNAL);
  }
  server_.reset();
}

TEST_F(StorageServerTest, ClosesConnectionsThatAreIdle) {
  StorageServer server({.idleSeconds = 1});
  const Descriptor socket = Connect(server.Port());
  char byte = 0;
  EXPECT_LE(::recv(socket.Get(), &byte, 1, 0), 0);
}

TEST_F(StorageServerTest, ServesManyClientsAndStopsInTheMiddleOfAnAnswer) {
  WriteFile(file_, std::string(32'000'000, 'x'));
  std::vector<std::future<size_t>> readers;
  for (int reader = 0; reader < 4; ++reader)
    readers.push_back(
        std::async(std::launch::async, [&] { return Ask(server_->Port(), Get()).size(); }));
  for (int64_t id = 100; id < 200; ++id)
    server_->AddTrack(id, file_);
  for (auto& reader : readers)
    EXPECT_GT(reader.get(), 32'000'000u);
  EXPECT_LT(Ask(server_->Port(), Get(), [this] { server_.reset(); }).size(), 32'000'000u);
}

TEST_F(StorageServerTest, ABadNetworkIsAsBadAsAskedFor) {
  const auto restart = [this](const BadNetwork::Options& network) {
    server_ = std::make_unique<StorageServer>(StorageServer::Options{.network = network});
    server_->AddTrack(7, file_);
    return server_->Port();
  };
  EXPECT_EQ(Ask(restart({.dropped = 1}), Get()), "");
  EXPECT_THAT(Ask(restart({.truncated = 1}), Get()), EndsWith("Content-Length: 10\r\n\r\n01234"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(Ask(restart({.bytesPerSecond = 100, .delay = std::chrono::milliseconds(50)}), Get()),
              EndsWith("\r\n\r\n0123456789"));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));

  // However long it would take, the end does not wait.
  const uint16_t slow = restart({.bytesPerSecond = 1e-6});
  EXPECT_THAT(Ask(slow, Get(), [this] { server_.reset(); }), EndsWith("\r\n\r\n"));
  const Descriptor late = Connect(restart({.delay = std::chrono::hours(1)}));
  ::send(late.Get(), kRequest.data(), kRequest.size(), MSG_NOSIGNAL);
  while (server_->RequestCount() == 0)
    std::this_thread::yield();
  server_.reset();
  EXPECT_EQ(Ask(late, ""), "");
}

}  // namespace Moravel::Player
