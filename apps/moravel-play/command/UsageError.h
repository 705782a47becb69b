#pragma once

#include <stdexcept>

namespace Moravel::Play {

// A command line that cannot be carried out; the text is one line for the user.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Moravel::Play
