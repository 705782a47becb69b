#pragma once

#include <mutex>
#include <optional>
#include <stop_token>
#include <string>

namespace Moravel::Play {

// Ends a playback early, and remembers why. Any thread may call anything.
class Stopper {
 public:
  std::stop_token Token() const { return stop_.get_token(); }

  // The user interrupted.
  void Interrupt();
  // The reader of our output has gone; nobody minds.
  void OutputClosed() { stop_.request_stop(); }
  // A picture could not be written; the first reason is kept.
  void OutputFailed(const std::string& reason);

  bool Interrupted() const;
  std::optional<std::string> OutputFailure() const;

 private:
  std::stop_source stop_;
  mutable std::mutex reasonAccess_;  // guards all below
  bool interrupted_ = false;
  std::optional<std::string> outputFailure_;
};

}  // namespace Moravel::Play
