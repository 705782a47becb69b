#pragma once

#include <exception>
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
  // The player cannot go on. Allocates nothing.
  void Fail(std::exception_ptr error) noexcept;

  bool Interrupted() const;
  std::optional<std::string> OutputFailure() const;
  // Throws what Fail was given first, if anything.
  void RethrowFailure() const;

 private:
  std::stop_source stop_;
  mutable std::mutex reasonAccess_;  // guards all below
  bool interrupted_ = false;
  std::optional<std::string> outputFailure_;
  std::exception_ptr failure_;
};

}  // namespace Moravel::Play
