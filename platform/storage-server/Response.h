#pragma once

#include <microhttpd.h>

#include <memory>
#include <string>

#include "storage-server/BadNetwork.h"
#include "storage-server/ByteRange.h"
#include "storage-server/Descriptor.h"

namespace Moravel::Player {

// An answer. Operations throw std::bad_alloc.
class Response {
 public:
  // An empty body.
  Response();
  // That part of the file.
  Response(Descriptor file, const ByteRange& part);
  // The same over a bad network, which outlives the daemon. The body may end in the middle.
  Response(Descriptor file, const ByteRange& part, BadNetwork& network, bool isTruncated);

  void Add(const char* name, const std::string& value);
  // False: the connection is to be closed.
  bool Send(MHD_Connection* connection, unsigned status);

 private:
  void Check() const;
  struct Destroyer {
    void operator()(MHD_Response* response) const { ::MHD_destroy_response(response); }
  };
  std::unique_ptr<MHD_Response, Destroyer> response_;
};

}  // namespace Moravel::Player
