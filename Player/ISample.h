#pragma once

#include <boost/thread/shared_mutex.hpp>
#include <cstdint>
#include <set>
#include <string>

#include "Player/Export.h"
#include "Time/TimePoint.h"

namespace Moravel::Player {

// A sample as the host sees it: a time, a duration and bytes under keys.
//
// A sample has one owner: who accepted the Output that carried it, or who called Decode. The owner
// destroys it; orders only borrow it while they run. Destroying a sample does not look at its
// protection counter. The read operations may be called from several threads once the sample is
// published.
class MORAVEL_PLAYER_API ISample {
 public:
  ISample() = default;
  virtual ~ISample();

  ISample(const ISample&) = delete;
  ISample& operator=(const ISample&) = delete;

  virtual Time::TimePoint GetTimePoint() const = 0;
  virtual Time::TimePoint GetDuration() const = 0;

  virtual std::set<std::string> GetPropertyKeys() const = 0;
  virtual std::set<std::string> GetDataKeys() const = 0;

  // The bytes under a key, valid while the sample lives; null, with `size` unwritten, when there
  // are none.
  virtual const uint8_t* GetProperty(const std::string& key, uint64_t& size) const = 0;
  virtual const uint8_t* GetData(const std::string& key, uint64_t& size) const = 0;

  // Raise and lower the count of those who need the sample, from any thread; both return the new
  // count. Unprotect never leaves it below zero. The count stops at the ends of its range.
  virtual int64_t Protect(int64_t protection);
  virtual int64_t Unprotect(int64_t protection);
  virtual int64_t GetProtectionCounter();

 private:
  boost::shared_mutex protectionAccess_;  // guards protectionCounter_ and nothing else
  int64_t protectionCounter_ = 0;
};

}  // namespace Moravel::Player
