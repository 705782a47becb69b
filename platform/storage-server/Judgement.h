#pragma once

#include "storage-server/ByteRange.h"
#include "storage-server/Request.h"
#include "storage-server/ServedFile.h"

namespace Moravel::Player {

// What a request for a file gets.
struct Judgement {
  unsigned status;
  ByteRange part;  // of the file, for the body
};

// By the preconditions, validators and the range of the request (RFC 9110, sections 13 and 14).
Judgement Judge(const Request& request, const FileState& file);

// A date of HTTP.
std::string DateText(time_t time);

}  // namespace Moravel::Player
