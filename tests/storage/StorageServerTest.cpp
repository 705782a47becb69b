#include "storage-server/StorageServer.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <fstream>
#include <future>
#include <stdexcept>

#include "storage-server/Descriptor.h"
#include "support/TempFolder.h"

namespace Moravel::Player {

using Moravel::Test::TempFolder;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

void WriteFile(const std::filesystem::path& file, const std::string& content) {
  std::ofstream(file, std::ios::binary) << content;
}

// Sends requests (the last one closes the connection) and returns all that comes.
std::string Ask(uint16_t port, const std::string& requests,
                const std::function<void()>& onData = {}) {
  const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
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

std::string Get(const std::string& lines = {}, const std::string& target = "GET /tracks/7") {
  return target + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" + lines + "\r\n";
}

class StorageServerTest : public testing::Test {
 protected:
  StorageServerTest() {
    WriteFile(file_, "0123456789");
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
      Ask(server_->Port(), "GET /tracks/7 HTTP/1.1\r\nHost: x\r\n\r\n" + Get());
  EXPECT_NE(both.find("HTTP/1.1 200"), both.rfind("HTTP/1.1 200")) << "the connection is kept";

  WriteFile(folder_ / "new", "behind....");
  std::filesystem::rename(folder_ / "new", file_);
  EXPECT_THAT(Ask(server_->Port(), Get("If-Match: " + etag + "\r\n")), StartsWith("HTTP/1.1 412"));
  EXPECT_THAT(Ask(server_->Port(), Get()), EndsWith("behind...."));
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

}  // namespace Moravel::Player
