#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <limits>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "storage-server/Descriptor.h"
#include "storage-server/StorageServer.h"

namespace Moravel::Test {

// What is wrong with one answer; members left alone are as they should be, and all combine.
struct Fault {
  enum class Part { Header, Body };
  // So many bytes of that part are sent before it happens. {Header, 0}: none at all.
  struct Point {
    Part part;
    size_t bytes;
  };

  std::optional<Point> stall = {};  // sends nothing more until ReleaseStalls
  std::string drip = {};            // but this, over and over, every few milliseconds
  bool isFlood = false;             // or as fast as the client takes it
  std::chrono::milliseconds late{std::chrono::hours(1)};  // and goes on after that time
  std::optional<Point> cut = {};                          // closes the connection there
  int status = 0;                 // this status, 206 and 200 with a body, others without
  std::string headerLines = {};   // additional ones, each with its line end
  std::string contentRange = {};  // in place of the right one
  int64_t bodyExcess = 0;         // the body, and its length in the header, is longer or shorter
  bool ignoreRange = false;       // answers 200 with the whole file
  std::optional<std::string> etag = {};  // in place of the right one, empty for none
  bool ofLastBytes = false;  // only when a file's last bytes are asked for by their number
};

// The embedded storage server behind a proxy that breaks its answers on demand, on a loopback port
// that it keeps for its life.
//
// libcurl repeats a request by itself when a connection that it has used before is cut within the
// answer's header: to see that fault, let it last for two requests.
class FaultyServer {
 public:
  // Asked before each answer, with the request's number from 0, by one thread at a time.
  using FaultChooser = std::function<Fault(uint64_t request)>;

  FaultyServer() { SetListening(true); }
  ~FaultyServer() { SetListening(false); }
  FaultyServer(const FaultyServer&) = delete;
  FaultyServer& operator=(const FaultyServer&) = delete;

  void SetTrack(int64_t id, const std::filesystem::path& file) { server_.AddTrack(id, file); }
  void SetFaults(FaultChooser chooser);
  // The same for the next so many requests; those after them are answered well.
  void SetFault(const Fault& fault, int requests = std::numeric_limits<int>::max());
  // Answers to requests that came before it do not stall any more.
  void ReleaseStalls();
  // False: closes all connections and refuses new ones. True: as before, on the same port.
  void SetListening(bool listening);

  // A connection to the embedded server itself, which has not asked for anything yet.
  Player::Descriptor ConnectBehind() const;

  uint16_t Port() const { return port_; }
  uint64_t RequestCount() const { return server_.RequestCount(); }

 private:
  struct Connection {
    explicit Connection(Player::Descriptor client) : socket(std::move(client)) {}
    Player::Descriptor socket;
    std::atomic<bool> done = false;
    std::jthread thread;
  };

  void Accept();
  void Serve(const Player::Descriptor& client);
  bool Stall(const Player::Descriptor& client, const Fault& fault, uint64_t releases);

  Player::StorageServer server_{{}};
  uint16_t port_ = 0;
  Player::Descriptor listening_;
  std::list<Connection> connections_;
  std::thread acceptor_;

  std::mutex access_;  // guards all below; held while chooser_ runs
  std::condition_variable released_;
  FaultChooser chooser_;
  uint64_t requests_ = 0;
  uint64_t releases_ = 0;
  bool closing_ = false;
};

}  // namespace Moravel::Test
