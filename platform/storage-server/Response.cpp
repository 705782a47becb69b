#include "storage-server/Response.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "qelCore/OutOfMemory.h"

namespace Moravel::Player {

namespace {

// A body that a bad network passes on. The daemon asks for it piece by piece, in a thread of the
// connection.
struct SlowBody {
  Descriptor file;
  uint64_t offset;
  uint64_t end;  // of what is sent
  BadNetwork& network;

  static ssize_t Read(void* self, uint64_t position, char* bytes, size_t most) {
    auto& body = *static_cast<SlowBody*>(self);
    most = std::min({most, body.network.BlockSize(), body.end - position});
    if (most == 0 || !body.network.AwaitBytes(most)) {
      return MHD_CONTENT_READER_END_WITH_ERROR;
    }
    const ssize_t size =
        ::pread(body.file.Get(), bytes, most, static_cast<off_t>(body.offset + position));
    return size > 0 ? size : MHD_CONTENT_READER_END_WITH_ERROR;
  }
  static void Free(void* self) { delete static_cast<SlowBody*>(self); }
};

}  // namespace

Response::Response()
    : response_(::MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT)) {
  Check();
}

Response::Response(Descriptor file, const ByteRange& part)
    : response_(::MHD_create_response_from_fd_at_offset64(part.size, file.Get(), part.offset)) {
  Check();
  file.Release();
}

Response::Response(Descriptor file, const ByteRange& part, BadNetwork& network, bool isTruncated) {
  auto body = std::make_unique<SlowBody>(
      SlowBody{std::move(file), part.offset, isTruncated ? part.size / 2 : part.size, network});
  response_.reset(::MHD_create_response_from_callback(
      part.size, network.BlockSize(), &SlowBody::Read, body.get(), &SlowBody::Free));
  Check();
  static_cast<void>(body.release());  // the response's
}

void Response::Add(const char* name, const std::string& value) {
  if (::MHD_add_response_header(response_.get(), name, value.c_str()) != MHD_YES) {
    qel::FailOutOfMemory();
  }
}

bool Response::Send(MHD_Connection* connection, unsigned status) {
  return ::MHD_queue_response(connection, status, response_.get()) == MHD_YES;
}

void Response::Check() const {
  if (!response_) {
    qel::FailOutOfMemory();
  }
}

}  // namespace Moravel::Player
