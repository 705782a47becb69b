#pragma once

#include <unistd.h>

#include <utility>

namespace Moravel::Player {

// Owns a file descriptor; negative for none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int value) : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Descriptor() {
    if (value_ >= 0) {
      ::close(value_);
    }
  }

  int Get() const { return value_; }
  explicit operator bool() const { return value_ >= 0; }
  int Release() { return std::exchange(value_, -1); }

 private:
  int value_ = -1;
};

}  // namespace Moravel::Player
