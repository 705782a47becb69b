#pragma once

#include <stop_token>

namespace qel {

// Lets a host end what a storage source does. While a scope lives, every call into a storage source
// from the scope's thread (opening a track, reading a sample, also inside a preloader that calls
// the source) ends within milliseconds when the stop is requested, from any thread: the call throws
// QELRuntimeError that says "stopped by the host". A preloader answers ERROR with that line for a
// track that was to be opened, and throws for a sample that was to be read.
//
//   std::stop_source stop;  // whoever cancels calls stop.request_stop()
//   const qel::StopScope scope(stop.get_token());
//   preloader.Preload(order);
//
// A requested stop stays: later calls inside the scope that need the server throw at once. Nothing
// is lost with it; the source serves the next call made outside of the scope, or in one of another
// stop. Scopes nest, the innermost counts. A scope is destroyed by the thread that made it.
class StopScope {
 public:
  explicit StopScope(std::stop_token stop);
  ~StopScope();
  StopScope(const StopScope&) = delete;
  StopScope& operator=(const StopScope&) = delete;

  // The stop of the calling thread; outside of any scope one that is never requested.
  static std::stop_token Current();

 private:
  const std::stop_token stop_;
  const StopScope* const outer_;
};

}  // namespace qel
