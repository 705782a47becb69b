#include <string>
#include <string_view>

#include "FuzzTarget.h"
#include "elements/storage/HttpResponse.h"

// The handling of HTTP answers: the input is a head, line by line.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using Moravel::Fuzz::Require;
  const qel::ByteRange asked{100, 50};
  qel::HttpResponse response;
  try {
    std::string_view head(reinterpret_cast<const char*>(data), size);
    while (!head.empty()) {
      const size_t end = std::min(head.find('\n'), head.size() - 1) + 1;
      response.AddHeaderLine(head.substr(0, end));
      head.remove_prefix(end);
    }
    const qel::FileVersion version = response.CheckFirst(asked);
    Require(version.size > asked.offset, "an accepted answer has bytes of the range");
    if (version.size >= asked.End())
      response.CheckNext(asked, version);
  } catch (const qel::QELRuntimeError&) {
  }
  return 0;
}

std::vector<Moravel::Fuzz::Input> Moravel::Fuzz::Seeds() {
  std::vector<Input> seeds;
  for (const std::string_view head :
       {"HTTP/1.1 206 Partial Content\r\nContent-Length: 50\r\nContent-Range: bytes 100-149/1000"
        "\r\nETag: \"abc\"\r\n\r\n",
        "HTTP/1.1 302 Found\r\nLocation: /x\r\n\r\nHTTP/1.1 206 Partial Content\r\ncontent-range: "
        "bytes 100-119/120\r\nLast-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\nETag: W/\"a\"\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 150\r\n\r\n",
        "HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */90\r\n\r\n",
        "HTTP/1.1 412 Precondition Failed\r\n\r\n"})
    seeds.emplace_back(head.begin(), head.end());
  return seeds;
}
