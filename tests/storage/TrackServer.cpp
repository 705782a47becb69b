#include "TrackServer.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "storage/Listening.h"

namespace Moravel::Test {

namespace {

void WriteConfig(const std::filesystem::path& folder, const std::string& listen) {
  std::ofstream config(folder / "nginx.conf");
  config
      << "daemon off;\nmaster_process off;\npid nginx.pid;\nevents {}\nhttp {\naccess_log off;\n";
  for (const char* const kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
    config << kind << "_temp_path " << kind << ";\n";
  config << "server {\nlisten " << listen << ";\nroot " << folder.string() << ";\n}\n}\n";
}

pid_t Spawn(std::vector<std::string> command) {
  std::vector<char*> arguments;
  for (std::string& argument : command)
    arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  pid_t process = -1;
  const int error =
      ::posix_spawnp(&process, arguments.front(), nullptr, nullptr, arguments.data(), environ);
  if (error != 0)
    throw std::system_error(error, std::generic_category(), command.front());
  return process;
}

}  // namespace

std::filesystem::path FindNginx() {
  const char* const path = std::getenv("PATH");
  std::istringstream folders("/usr/sbin:" + std::string(path == nullptr ? "" : path));
  for (std::string folder; std::getline(folders, folder, ':');) {
    const auto program = std::filesystem::path(folder) / "nginx";
    if (::access(program.c_str(), X_OK) == 0)
      return program;
  }
  return {};
}

TrackServer::TrackServer(const ServerKind& kind)
    : socket_(kind.isUnixSocket ? (folder_ / "socket").string() : "") {
  if (kind.isNginx) {
    StartNginx();
  } else {
    embedded_.emplace(Player::StorageServer::Options{.unixDomainSocket = socket_});
    port_ = embedded_->Port();
  }
}

TrackServer::~TrackServer() {
  if (nginx_ > 0) {
    ::kill(nginx_, SIGTERM);
    ::waitpid(nginx_, nullptr, 0);
  }
}

// The port may be taken by somebody else before nginx has it: then it ends, and gets another one.
void TrackServer::StartNginx() {
  std::filesystem::create_directory(folder_ / "tracks");
  for (int attempt = 0; attempt < 5 && nginx_ < 0; ++attempt) {
    if (socket_.empty())
      port_ = Player::PortOf(Player::ListenOnTcp("127.0.0.1", 0));
    WriteConfig(folder_.Path(),
                socket_.empty() ? "127.0.0.1:" + std::to_string(port_) : "unix:" + socket_);
    RunNginx();
  }
  if (nginx_ < 0)
    throw std::runtime_error("nginx does not start");
}

// Returns when it listens, or has ended. It ends with the test, however that ends.
void TrackServer::RunNginx() {
  const std::string folder = folder_.Path().string() + '/';
  nginx_ = Spawn({"setpriv", "--pdeathsig", "TERM", FindNginx(), "-p", folder, "-c",
                  folder + "nginx.conf", "-e", folder + "error.log"});
  while (!std::filesystem::exists(folder_ / "nginx.pid")) {  // written when it listens
    if (::waitpid(nginx_, nullptr, WNOHANG) != 0) {
      nginx_ = -1;
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

void TrackServer::SetTrack(int64_t id, const std::filesystem::path& file) {
  if (embedded_) {
    embedded_->AddTrack(id, file);
    return;
  }
  const auto track = folder_ / "tracks" / std::to_string(id);
  std::filesystem::create_symlink(file, folder_ / "link");
  std::filesystem::rename(folder_ / "link", track);
}

}  // namespace Moravel::Test
