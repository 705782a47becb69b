#pragma once

#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>

#include "view/LoopbackServer.h"

namespace Moravel::Play {

// A request that cannot be carried out; the text says what would be right.
class BadRequest : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The parameters of requests. What is missing or wrong is a BadRequest.

int64_t NumberParameter(const HttpRequest& request, const char* name, int64_t least, int64_t most);

// One of the words; which of them it is.
size_t WordParameter(const HttpRequest& request, const char* name,
                     std::initializer_list<std::string_view> words);

// Letters, digits and dashes, at most 64 of them.
std::string NameParameter(const HttpRequest& request, const char* name);

}  // namespace Moravel::Play
