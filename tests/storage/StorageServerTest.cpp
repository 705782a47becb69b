#include "storage/StorageServer.h"

#include <curl/curl.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/TempFolder.h"

namespace Moravel::Player {

using Moravel::Test::TempFolder;
using testing::HasSubstr;
using Headers = std::vector<std::string>;

void WriteFile(const std::filesystem::path& file, const std::string& content) {
  std::ofstream(file, std::ios::binary) << content;
}

struct Answer {
  long status = 0;
  std::string body;
  std::map<std::string, std::string> headers;
};

// Speaks to one server over one connection, as long as that is kept.
class Client {
 public:
  Client(const StorageServer& server, std::string socket)
      : url_("http://127.0.0.1:" + std::to_string(server.Port())), socket_(std::move(socket)) {}

  Answer Send(const std::string& path, const Headers& headers = {},
              const std::string& method = "GET") {
    Answer answer;
    CURL* handle = handle_.get();
    curl_easy_reset(handle);
    curl_easy_setopt(handle, CURLOPT_URL, (url_ + path).c_str());
    curl_easy_setopt(handle, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(handle, CURLOPT_UNIX_SOCKET_PATH, socket_.empty() ? nullptr : socket_.c_str());
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, method.c_str());
    curl_easy_setopt(handle, CURLOPT_NOBODY, method == "HEAD" ? 1L : 0L);
    curl_slist* list = nullptr;
    for (const std::string& header : headers)
      list = curl_slist_append(list, header.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Client::Receive);
    result_ = curl_easy_perform(handle);
    curl_slist_free_all(list);
    answer.body = std::exchange(body_, {});
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &answer.status);
    curl_easy_getinfo(handle, CURLINFO_NUM_CONNECTS, &connects_);
    for (curl_header* h = nullptr; (h = curl_easy_nextheader(handle, CURLH_HEADER, -1, h));)
      answer.headers[h->name] = h->value;
    return answer;
  }

  CURLcode result_ = CURLE_OK;  // of the last request
  long connects_ = 0;           // connections that it had to make
  std::function<void()> onData_ = [] {};

 private:
  static size_t Receive(const char* data, size_t, size_t size, void* client) {
    static_cast<Client*>(client)->body_.append(data, size);
    static_cast<Client*>(client)->onData_();
    return size;
  }

  const std::string url_;
  const std::string socket_;
  std::string body_;
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle_{curl_easy_init(), curl_easy_cleanup};
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
  WriteFile(file_, "0123456789");
  server_->AddTrack(7, file_);
  const Answer first = client_.Send("/tracks/7", {}, "HEAD");
  EXPECT_EQ(first.headers.at("Content-Length"), "10");
  const std::string etag = first.headers.at("ETag"), date = first.headers.at("Last-Modified");
  const std::string range = "Range: bytes=3-5", past = "Thu, 01 Jan 1970 00:00:00 GMT";
  const struct {
    Headers headers;
    long status;
    std::string body, part;
    std::string method = "GET", path = "/tracks/7";
  } rows[] = {
      {{}, 200, "0123456789", ""},
      {{"Range: BYTES=9-9"}, 206, "9", "bytes 9-9/10"},
      {{"Range: bytes=8-99999999999999999999999"}, 206, "89", "bytes 8-9/10"},
      {{"Range: bytes=8-"}, 206, "89", "bytes 8-9/10"},
      {{"Range: bytes=-3"}, 206, "789", "bytes 7-9/10"},
      {{"Range: bytes=-11"}, 206, "0123456789", "bytes 0-9/10"},
      {{"Range: bytes=10-"}, 416, "", "bytes */10"},
      {{"Range: bytes=-0"}, 416, "", "bytes */10"},
      {{"Range: bytes=5-3"}, 200, "0123456789", ""},
      {{"Range: bytes=1-2,4-5"}, 200, "0123456789", ""},
      {{range, "If-Match: \"other\", " + etag}, 206, "345", "bytes 3-5/10"},
      {{range, "If-Match: W/" + etag}, 412, "", ""},
      {{range, "If-Unmodified-Since: " + date}, 206, "345", "bytes 3-5/10"},
      {{range, "If-Unmodified-Since: " + past}, 412, "", ""},
      {{range, "If-Range: " + etag}, 206, "345", "bytes 3-5/10"},
      {{range, "If-Range: " + date}, 206, "345", "bytes 3-5/10"},
      {{range, "If-Range: \"other\""}, 200, "0123456789", ""},
      {{range}, 200, "", "", "HEAD"},
      {{range}, 405, "", "", "POST"},
      {{}, 404, "", "", "GET", "/tracks/8"},
      {{}, 404, "", "", "GET", "/tracks/7/"},
  };
  uint64_t bytes = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.method + " " + row.path + " " + testing::PrintToString(row.headers));
    Answer answer = client_.Send(row.path, row.headers, row.method);
    EXPECT_EQ(answer.status, row.status);
    EXPECT_EQ(answer.body, row.body);
    EXPECT_EQ(answer.headers["Content-Range"], row.part);
    EXPECT_EQ(client_.connects_, 0) << "the connection is kept";
    bytes += row.body.size();
  }
  EXPECT_EQ(server_->RequestCount(), 1 + std::size(rows));
  EXPECT_EQ(server_->BytesRequested(), bytes);
}

TEST_P(StorageServerTest, NoticesAReplacedFile) {
  WriteFile(file_, "before");
  server_->AddTrack(7, file_);
  const std::string etag = client_.Send("/tracks/7").headers["ETag"];
  WriteFile(folder_ / "new", "behind");
  std::filesystem::rename(folder_ / "new", file_);
  EXPECT_EQ(client_.Send("/tracks/7", {"If-Match: " + etag}).status, 412);
  EXPECT_EQ(client_.Send("/tracks/7").body, "behind");
  std::filesystem::remove(file_);
  EXPECT_EQ(client_.Send("/tracks/7").status, 404);
}

TEST_P(StorageServerTest, ServesManyClientsWhileTracksAreAdded) {
  const std::string content(300'000, 'a');
  WriteFile(file_, content);
  server_->AddTrack(0, file_);
  std::vector<std::future<void>> readers;
  for (int reader = 0; reader < 4; ++reader) {
    readers.push_back(std::async(std::launch::async, [&] {
      Client client(*server_, socket_);
      for (int i = 0; i < 25; ++i)
        EXPECT_EQ(client.Send("/tracks/0").body.size(), content.size());
    }));
  }
  for (int64_t id = 1; id < 100; ++id)
    server_->AddTrack(id, file_);
}

TEST_P(StorageServerTest, StopsInTheMiddleOfAnAnswer) {
  WriteFile(file_, std::string(32'000'000, 'x'));
  server_->AddTrack(7, file_);
  client_.onData_ = [this] { server_.reset(); };
  client_.Send("/tracks/7");
  EXPECT_NE(client_.result_, CURLE_OK);
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
  const std::pair<std::filesystem::path, std::string> files[] = {
      {folder / "no", "No such file or directory"},
      {folder.Path(), "Is a directory"},
      {"/dev/null", "Not a regular file"}};
  for (const auto& [file, reason] : files)
    EXPECT_EQ(ErrorOf([&] { server.AddTrack(3, file); }),
              "track 3: cannot read " + file.string() + ": " + reason);

  WriteFile(folder / "taken", "");
  const std::pair<StorageServer::Options, std::string> cases[] = {
      {{.port = server.Port()}, std::to_string(server.Port()) + ": Address already in use"},
      {{.address = "nowhere"}, "'nowhere' is no numeric"},
      {{.unixDomainSocket = folder / "no" / "socket"}, "No such file or directory"},
      {{.unixDomainSocket = std::string(200, 'x')}, "at most 107 bytes"},
      {{.unixDomainSocket = folder / "taken"}, "Address already in use"}};
  for (const auto& [options, reason] : cases)
    EXPECT_THAT(ErrorOf([&] { const StorageServer other(options); }), HasSubstr(reason));
  EXPECT_TRUE(std::filesystem::exists(folder / "taken"));
}

}  // namespace Moravel::Player
