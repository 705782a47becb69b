#include "storage/StorageServer.h"

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/TempFolder.h"

namespace Moravel::Player {
namespace {

using Test::TempFolder;

void WriteFile(const std::filesystem::path& file, const std::string& content) {
  std::ofstream(file, std::ios::binary) << content;
}

std::string Content(size_t size, char first) {
  std::string content(size, 0);
  std::iota(content.begin(), content.end(), first);
  return content;
}

struct Answer {
  long status = 0;
  std::string body;
  std::map<std::string, std::string> headers;
};

// Speaks to one server, over one connection for as long as that is kept.
class Client {
 public:
  Client(const StorageServer& server, const std::string& unixDomainSocket)
      : url_("http://127.0.0.1:" + std::to_string(server.Port())), socket_(unixDomainSocket) {}

  Answer Send(const std::string& path, const std::vector<std::string>& headers = {},
              const std::string& method = "GET") {
    CURL* handle = handle_.get();
    Answer answer;
    curl_easy_reset(handle);
    curl_easy_setopt(handle, CURLOPT_URL, (url_ + path).c_str());
    curl_easy_setopt(handle, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(handle, CURLOPT_TIMEOUT, 20L);
    if (!socket_.empty()) {
      curl_easy_setopt(handle, CURLOPT_UNIX_SOCKET_PATH, socket_.c_str());
    }
    if (method == "HEAD") {
      curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
    } else if (method == "POST") {
      curl_easy_setopt(handle, CURLOPT_POSTFIELDS, "body");
    }
    curl_slist* list = nullptr;
    for (const std::string& header : headers) {
      list = curl_slist_append(list, header.c_str());
    }
    const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> holder(list,
                                                                             &curl_slist_free_all);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &answer.body);
    curl_easy_setopt(
        handle, CURLOPT_WRITEFUNCTION, +[](char* data, size_t one, size_t size, void* body) {
          static_cast<std::string*>(body)->append(data, size);
          return one * size;
        });
    EXPECT_EQ(curl_easy_perform(handle), CURLE_OK);
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &answer.status);
    ReadHeaders(answer);
    long connects = 0;
    curl_easy_getinfo(handle, CURLINFO_NUM_CONNECTS, &connects);
    connects_ += connects;
    return answer;
  }

  long Connects() const { return connects_; }

 private:
  void ReadHeaders(Answer& answer) {
    curl_header* header = nullptr;
    while ((header = curl_easy_nextheader(handle_.get(), CURLH_HEADER, -1, header)) != nullptr) {
      answer.headers[header->name] = header->value;
    }
  }

  const std::string url_;
  const std::string socket_;
  const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle_{curl_easy_init(),
                                                                    &curl_easy_cleanup};
  long connects_ = 0;
};

class StorageServerTest : public testing::TestWithParam<bool> {
 protected:
  TempFolder folder_;
  const std::string socket_ = GetParam() ? (folder_ / "socket").string() : std::string();
  const std::filesystem::path file_ = folder_ / "track";
  std::unique_ptr<StorageServer> server_ =
      std::make_unique<StorageServer>(StorageServer::Options{.unixDomainSocket = socket_});
  Client client_{*server_, socket_};
};

INSTANTIATE_TEST_SUITE_P(Sockets, StorageServerTest, testing::Bool(), [](const auto& parameter) {
  return parameter.param ? "UnixDomainSocket" : "Tcp";
});

TEST_P(StorageServerTest, AnswersByRangesAndValidators) {
  constexpr size_t kSize = 1000;
  const std::string content = Content(kSize, 'a');
  WriteFile(file_, content);
  server_->AddTrack(7, file_);

  const Answer first = client_.Send("/tracks/7", {}, "HEAD");
  ASSERT_EQ(first.status, 200);
  EXPECT_EQ(first.headers.at("Content-Length"), "1000");
  EXPECT_EQ(first.headers.at("Accept-Ranges"), "bytes");
  const std::string etag = first.headers.at("ETag");
  const std::string date = first.headers.at("Last-Modified");
  const std::string range = "Range: bytes=3-12";
  const std::string past = "Thu, 01 Jan 1970 00:00:00 GMT";

  const struct {
    std::vector<std::string> headers;
    long status;
    size_t offset;  // of the body in the file
    size_t size;
    std::string method = "GET";
    std::string path = "/tracks/7";
  } rows[] = {
      {{}, 200, 0, kSize},
      {{"Range: bytes=0-99"}, 206, 0, 100},
      {{"Range: BYTES=999-999"}, 206, 999, 1},
      {{"Range: bytes=990-"}, 206, 990, 10},
      {{"Range: bytes=990-1000"}, 206, 990, 10},
      {{"Range: bytes=1-99999999999999999999999"}, 206, 1, 999},
      {{"Range: bytes=-10"}, 206, 990, 10},
      {{"Range: bytes=-1001"}, 206, 0, kSize},
      // Nothing there.
      {{"Range: bytes=1000-"}, 416, 0, 0},
      {{"Range: bytes=99999999999999999999999-"}, 416, 0, 0},
      {{"Range: bytes=-0"}, 416, 0, 0},
      // Not one byte range.
      {{"Range: bytes=5-3"}, 200, 0, kSize},
      {{"Range: bytes=-"}, 200, 0, kSize},
      {{"Range: bytes=1-2x"}, 200, 0, kSize},
      {{"Range: bytes=1-2,4-5"}, 200, 0, kSize},
      {{"Range: samples=1-2"}, 200, 0, kSize},
      // Conditions.
      {{range, "If-Match: " + etag}, 206, 3, 10},
      {{range, "If-Match: \"other\", " + etag + ", \"more\""}, 206, 3, 10},
      {{range, "If-Match: *"}, 206, 3, 10},
      {{range, "If-Match: \"other\""}, 412, 0, 0},
      {{range, "If-Match: W/" + etag}, 412, 0, 0},
      {{range, "If-Unmodified-Since: " + date}, 206, 3, 10},
      {{range, "If-Unmodified-Since: " + past}, 412, 0, 0},
      {{range, "If-Unmodified-Since: yesterday"}, 206, 3, 10},
      {{range, "If-Match: " + etag, "If-Unmodified-Since: " + past}, 206, 3, 10},
      {{"Range: bytes=1000-", "If-Match: \"other\""}, 412, 0, 0},
      {{range, "If-Range: " + etag}, 206, 3, 10},
      {{range, "If-Range: " + date}, 206, 3, 10},
      {{range, "If-Range: W/" + etag}, 200, 0, kSize},
      {{range, "If-Range: " + past}, 200, 0, kSize},
      // Methods and paths.
      {{range}, 200, 0, 0, "HEAD"},
      {{range}, 405, 0, 0, "POST"},
      {{}, 404, 0, 0, "GET", "/tracks/8"},
      {{}, 404, 0, 0, "GET", "/tracks/7/"},
      {{}, 404, 0, 0, "GET", "/tracks/"},
      {{}, 404, 0, 0, "GET", "/7"},
  };
  uint64_t requests = 1;
  uint64_t bytes = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.method + " " + row.path + " " + testing::PrintToString(row.headers));
    Answer answer = client_.Send(row.path, row.headers, row.method);
    EXPECT_EQ(answer.status, row.status);
    EXPECT_TRUE(answer.body == content.substr(row.offset, row.size));
    const std::string part =
        std::to_string(row.offset) + "-" + std::to_string(row.offset + row.size - 1);
    EXPECT_EQ(answer.headers["Content-Range"], row.status == 206   ? "bytes " + part + "/1000"
                                               : row.status == 416 ? "bytes */1000"
                                                                   : "");
    EXPECT_EQ(answer.headers["Allow"], row.status == 405 ? "GET, HEAD" : "");
    ++requests;
    bytes += row.size;
  }
  EXPECT_EQ(server_->RequestCount(), requests);
  EXPECT_EQ(server_->BytesRequested(), bytes);
  EXPECT_EQ(client_.Connects(), 1);
}

TEST_P(StorageServerTest, NoticesAReplacedFile) {
  WriteFile(file_, Content(1000, 'a'));
  server_->AddTrack(7, file_);
  const std::string etag = client_.Send("/tracks/7").headers["ETag"];

  WriteFile(folder_ / "new", Content(1000, 'b'));
  std::filesystem::rename(folder_ / "new", file_);
  EXPECT_EQ(client_.Send("/tracks/7", {"If-Match: " + etag}).status, 412);
  const Answer replaced = client_.Send("/tracks/7");
  EXPECT_NE(replaced.headers.at("ETag"), etag);
  EXPECT_TRUE(replaced.body == Content(1000, 'b'));

  WriteFile(file_, "");
  EXPECT_EQ(client_.Send("/tracks/7").headers.at("Content-Length"), "0");
  EXPECT_EQ(client_.Send("/tracks/7", {"Range: bytes=0-"}).status, 416);
  std::filesystem::remove(file_);
  EXPECT_EQ(client_.Send("/tracks/7").status, 404);
  std::filesystem::create_directory(file_);
  EXPECT_EQ(client_.Send("/tracks/7").status, 404);
  EXPECT_EQ(client_.Connects(), 1);
}

TEST_P(StorageServerTest, ServesManyClientsWhileTracksAreAdded) {
  const std::string content = Content(300'000, 'a');
  WriteFile(file_, content);
  server_->AddTrack(0, file_);
  const auto read = [&] {
    Client client(*server_, socket_);
    for (int i = 0; i < 25; ++i) {
      EXPECT_TRUE(client.Send("/tracks/0", {"Range: bytes=7-"}).body == content.substr(7));
    }
  };
  std::vector<std::future<void>> readers;
  for (int i = 0; i < 4; ++i) {
    readers.push_back(std::async(std::launch::async, read));
  }
  for (int64_t id = 1; id < 100; ++id) {
    server_->AddTrack(id, file_);
  }
  readers.clear();
  EXPECT_EQ(server_->RequestCount(), 100u);
}

TEST_P(StorageServerTest, StopsInTheMiddleOfAnAnswer) {
  WriteFile(file_, std::string(32'000'000, 'x'));
  server_->AddTrack(7, file_);
  const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> reader(curl_easy_init(),
                                                                   &curl_easy_cleanup);
  const std::string url = "http://127.0.0.1:" + std::to_string(server_->Port()) + "/tracks/7";
  curl_easy_setopt(reader.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(reader.get(), CURLOPT_NOPROXY, "*");
  if (!socket_.empty()) {
    curl_easy_setopt(reader.get(), CURLOPT_UNIX_SOCKET_PATH, socket_.c_str());
  }
  // Stops the server when the first bytes are here, and goes on reading.
  curl_easy_setopt(reader.get(), CURLOPT_WRITEDATA, &server_);
  curl_easy_setopt(
      reader.get(), CURLOPT_WRITEFUNCTION, +[](char*, size_t one, size_t size, void* server) {
        static_cast<std::unique_ptr<StorageServer>*>(server)->reset();
        return one * size;
      });
  EXPECT_NE(curl_easy_perform(reader.get()), CURLE_OK);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "socket"));
}

std::string ErrorOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

TEST(StorageServerErrorTest, NamesWhatCannotBeServed) {
  const TempFolder folder;
  StorageServer server({});
  const auto add = [&](const std::filesystem::path& file) {
    return ErrorOf([&] { server.AddTrack(3, file); });
  };
  EXPECT_EQ(add(folder / "no"),
            "track 3: cannot read " + (folder / "no").string() + ": No such file or directory");
  EXPECT_EQ(add(folder.Path()),
            "track 3: cannot read " + folder.Path().string() + ": Is a directory");
  EXPECT_EQ(add("/dev/null"), "track 3: cannot read /dev/null: Not a regular file");

  const auto listen = [](const StorageServer::Options& options) {
    return ErrorOf([&] { const StorageServer other(options); });
  };
  EXPECT_EQ(listen({.port = server.Port()}),
            "storage server: cannot listen on 127.0.0.1:" + std::to_string(server.Port()) +
                ": Address already in use");
  EXPECT_THAT(listen({.address = "nowhere"}), testing::HasSubstr("'nowhere' is no numeric"));
  EXPECT_THAT(listen({.unixDomainSocket = (folder / "no" / "socket").string()}),
              testing::HasSubstr("No such file or directory"));
  EXPECT_THAT(listen({.unixDomainSocket = std::string(200, 'x')}),
              testing::HasSubstr("at most 107 bytes"));
  WriteFile(folder / "taken", "");
  EXPECT_THAT(listen({.unixDomainSocket = (folder / "taken").string()}),
              testing::HasSubstr("Address already in use"));
  EXPECT_TRUE(std::filesystem::exists(folder / "taken"));
}

}  // namespace
}  // namespace Moravel::Player
