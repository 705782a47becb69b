#include <gmock/gmock.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include "PlayerRun.h"
#include "storage-server/Descriptor.h"
#include "support/ClipMaker.h"

// The page's server in the built program, as an HTTP client sees it; tests/view sees the page.
namespace Moravel::Test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class View : public ::testing::Test {
 protected:
  View() {
    MakeClip({.file = folder_ / "clip.avi",
              .pictures = 40,
              .interlaced = true,
              .timecode = "23:59:59:20"});
    run_ = std::make_unique<PlayerRun>(
        std::vector<std::string>{"view", (folder_ / "clip.avi").string()});
    while (!address_.ends_with('\n') && address_.size() < 200)
      address_ += run_->Read(1);
    address_.pop_back();
    const size_t path = address_.find('/', 7);
    host_ = address_.substr(7, path - 7);
    path_ = address_.substr(path);
  }

  Player::Descriptor Connect() const {
    Player::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<uint16_t>(std::stoi(host_.substr(host_.find(':') + 1))));
    EXPECT_EQ(::connect(socket.Get(), reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    return socket;
  }

  // The whole answer. `lines`: more of the header, with their line ends.
  std::string Ask(const std::string& path, const std::string& lines = "",
                  const std::string& host = "", const std::string& method = "GET") {
    const Player::Descriptor socket = Connect();
    const std::string request = method + " " + path + " HTTP/1.1\r\nConnection: close\r\nHost: " +
                                (host.empty() ? host_ : host) + "\r\n" + lines + "\r\n";
    EXPECT_EQ(::send(socket.Get(), request.data(), request.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(request.size()));
    std::string answer;
    char part[65536];
    ssize_t size = 0;
    while ((size = ::recv(socket.Get(), part, sizeof part, 0)) > 0)
      answer.append(part, static_cast<size_t>(size));
    return answer;
  }

  TempFolder folder_;
  std::unique_ptr<PlayerRun> run_;
  std::string address_, host_, path_;
};

TEST_F(View, IsForThePageAtItsAddressAlone) {
  EXPECT_THAT(Ask(path_), AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("view.js"),
                                HasSubstr("Cache-Control: no-store"),
                                HasSubstr("Content-Security-Policy: default-src 'none'")));
  EXPECT_THAT(Ask(path_ + "view.js", "Origin: http://" + host_ + "\r\n"),
              StartsWith("HTTP/1.1 200"));
  std::string wrong = path_;
  wrong[3] = wrong[3] == '0' ? '1' : '0';
  const struct {
    const char* what;
    std::string answer;
    const char* status;
  } cases[] = {
      {"no token", Ask("/"), "403"},
      {"no token, a file", Ask("/view.js"), "403"},
      {"another token", Ask(wrong), "403"},
      {"half the token", Ask(path_.substr(0, 17) + "/"), "403"},
      {"another host", Ask(path_, "", "evil.example:80"), "403"},
      {"another port of this host", Ask(path_, "", "127.0.0.1:1"), "403"},
      {"another origin", Ask(path_, "Origin: http://evil.example\r\n"), "403"},
      {"no origin that has a name", Ask(path_, "Origin: null\r\n"), "403"},
      {"a link on another site", Ask(path_, "Sec-Fetch-Site: cross-site\r\n"), "403"},
      {"another method", Ask(path_, "", "", "POST"), "405"},
      {"a path that leads out", Ask(path_ + "../../etc/passwd"), "404"},
  };
  for (const auto& [what, answer, status] : cases) {
    EXPECT_THAT(answer, StartsWith(std::string("HTTP/1.1 ") + status)) << what;
    EXPECT_THAT(answer, Not(HasSubstr("view.css"))) << what;
  }
}

TEST_F(View, RefusesWrongParametersWithAWord) {
  const std::map<std::string, std::string> right = {
      {"track", "1"},   {"sample", "3"}, {"scale", "2"}, {"field", "frame"},
      {"kind", "play"}, {"step", "1"},   {"lane", "a"},  {"generation", "1"}};
  const auto picture = [&](std::map<std::string, std::string> with) {
    with.insert(right.begin(), right.end());
    std::string query;
    for (const auto& [name, value] : with)
      query += (query.empty() ? "picture?" : "&") + name + "=" + value;
    return Ask(path_ + query);
  };
  EXPECT_THAT(picture({}), AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("image/jpeg"),
                                 HasSubstr("X-Picture: shown"), HasSubstr("23:59:59:23")));
  const std::pair<const char*, const char*> wrong[] = {{"track", "2"},
                                                       {"track", "1x"},
                                                       {"sample", "40"},
                                                       {"sample", "-1"},
                                                       {"sample", ""},
                                                       {"scale", "0"},
                                                       {"scale", "17"},
                                                       {"field", "left"},
                                                       {"kind", "sideways"},
                                                       {"step", "0"},
                                                       {"step", "1e9"},
                                                       {"lane", "a%2Fb"},
                                                       {"generation", "99999999999999999999"}};
  for (const auto& [name, value] : wrong) {
    EXPECT_THAT(picture({{name, value}}), AllOf(StartsWith("HTTP/1.1 400"), HasSubstr(name)))
        << name << "=" << value;
  }
  EXPECT_THAT(Ask(path_ + "times?track=2"), StartsWith("HTTP/1.1 400"));
}

TEST_F(View, FindsTheSampleOfATime) {
  const struct {
    const char* time;
    const char* status;
    const char* says;
  } cases[] = {
      {"00:00:01:02", "200", "{\"sample\":27}"},
      {"%23137", "400", "the last picture is at 00:00:01:14"},
      {"TC+23:59:59:24", "200", "{\"sample\":4}"},
      {"tc00:00:01:00", "200", "{\"sample\":30}"},
      {"00:00:00%3B02", "200", "{\"sample\":7}"},
      {"TC+23:59:59:19", "400", "from TC 23:59:59:20 to 00:00:01:09"},
      {"TC+00:00:02", "400", "from TC 23:59:59:20"},
      {"TC", "400", "from TC 23:59:59:20"},
      {"TC+00:00:00:99", "400", "from TC 23:59:59:20"},
  };
  for (const auto& [time, status, says] : cases) {
    EXPECT_THAT(Ask(path_ + "sample?track=1&time=" + time),
                AllOf(StartsWith(std::string("HTTP/1.1 ") + status), HasSubstr(says)))
        << time;
  }
}

// Their requests never end.
TEST_F(View, AFloodOfStrangersKeepsNobodyOut) {
  std::vector<Player::Descriptor> strangers;
  for (int i = 0; i < 300; ++i) {
    strangers.push_back(Connect());
    ASSERT_GT(::send(strangers.back().Get(), "GET / HTTP/1.1\r\nHost: ", 22, MSG_NOSIGNAL), 0);
  }
  EXPECT_THAT(Ask(path_), StartsWith("HTTP/1.1 200"));
}

TEST_F(View, EndsAtAnInterrupt) {
  run_->Signal(SIGINT);
  EXPECT_EQ(run_->Wait(), 0);
  EXPECT_EQ(run_->Errors(), "");
}

}  // namespace
}  // namespace Moravel::Test
