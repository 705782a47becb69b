#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "storage/Descriptor.h"

namespace Moravel::Test {

using Player::Descriptor;

struct Request {
  std::string method;
  std::string path;
  std::map<std::string, std::string> headers;  // names in lower case
  uint64_t number;                             // of the server's requests, from 0
};

// What is wrong with one answer; members left alone are as they should be, and all combine.
struct Fault {
  enum class Part { Header, Body };
  // So many bytes of that part are sent before it happens. {Header, 0}: none at all.
  struct Point {
    Part part;
    size_t bytes;
  };

  std::optional<Point> stall = {};  // sends nothing more until ReleaseStalls
  std::optional<Point> cut = {};    // closes the connection there
  int status = 0;                   // this status, 206 and 200 with a body, others without
  std::string headerLines = {};     // additional ones, each with its line end
  std::string contentRange = {};    // in place of the right one
  int64_t bodyExcess = 0;           // the body, and its length in the header, is longer or shorter
  bool ignoreRange = false;         // answers 200 with the whole file
  std::optional<std::string> etag = {};  // in place of the right one, empty for none
};

// A storage server that breaks on demand, on a loopback port that it keeps for its life. It knows
// byte ranges, If-Match and If-Range with ETags, and keeps connections. All operations may be
// called from any thread, but SetListening from one at a time.
//
// libcurl repeats a request by itself when a connection that it has used before is cut within the
// answer's header: to see that fault, let it last for two requests.
class FaultyServer {
 public:
  // Asked before each answer, by the server's threads, one at a time.
  using FaultChooser = std::function<Fault(const Request&)>;

  FaultyServer();
  ~FaultyServer();
  FaultyServer(const FaultyServer&) = delete;
  FaultyServer& operator=(const FaultyServer&) = delete;

  // Serves what the file holds now; for a track that is there, with a new ETag.
  void SetTrack(int64_t id, const std::filesystem::path& file);

  void SetFaults(FaultChooser chooser);
  // The same for the next so many requests; those after them are answered well.
  void SetFault(const Fault& fault, int requests = std::numeric_limits<int>::max());

  // Answers to requests that came before it do not stall any more.
  void ReleaseStalls();
  // False: closes all connections and refuses new ones. True: as before, on the same port.
  void SetListening(bool listening);

  uint16_t Port() const { return port_; }
  uint64_t RequestCount() const;

 private:
  struct Track {
    std::string content;
    std::string etag;
  };
  struct Connection;

  void Accept();
  void Serve(Connection& connection);
  Fault ChooseFault(const Request& request);
  std::shared_ptr<const Track> FindTrack(const std::string& path) const;
  bool Answer(const Connection& connection, const Request& request, const Fault& fault);
  void AwaitRelease(uint64_t before);

  uint16_t port_ = 0;

  // Of the thread that accepts while there is one, else of SetListening.
  Descriptor listening_;
  std::list<Connection> connections_;
  std::thread acceptor_;

  std::mutex faultsAccess_;  // guards chooser_, and is held while it runs
  FaultChooser chooser_;

  mutable std::mutex stateAccess_;  // guards all below
  std::condition_variable released_;
  uint64_t releases_ = 0;
  bool closing_ = false;
  uint64_t requestCount_ = 0;
  std::map<std::string, std::shared_ptr<const Track>> tracks_;  // by path
  int versions_ = 0;
};

}  // namespace Moravel::Test
