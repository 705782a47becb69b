#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "qel/QELRuntimeError.h"

namespace qel {

constexpr size_t kMaxHeaderBytes = size_t{64} << 10;

// Bytes `offset` to `offset + size - 1` of a file.
struct ByteRange {
  int64_t offset = 0;
  int64_t size = 0;

  int64_t End() const { return offset + size; }
  // "first-last", as it stands in requests and answers.
  std::string Text() const;
};

// Which version of a file the server has: requests name it, answers are held against it.
struct FileVersion {
  int64_t size = 0;
  std::string etag;  // as sent, weak ones with their W/; empty when the server gives none
  std::string lastModified;
};

// The server has another version of the file than the one that its index was read from.
class FileChangedError : public QELRuntimeError {
 public:
  using QELRuntimeError::QELRuntimeError;
};

// The head of an answer to a request for a byte range (RFC 9110, section 14). Header lines go in
// as they come; whatever they hold, no more than kMaxHeaderBytes are taken. Not thread-safe.
class HttpResponse {
 public:
  // One line, with or without its line end. A status line starts a new head (after a redirection or
  // an interim answer). Throws QELRuntimeError when the lines are too long in all.
  void AddHeaderLine(std::string_view line);

  // The version of the file, when the answer is as much of `asked` as the file has. Throws
  // QELRuntimeError, which says what the server answered and what would be right.
  FileVersion CheckFirst(const ByteRange& asked) const;
  // The same for a file whose version is known: the answer is exactly `asked`. FileChangedError
  // when it is of another version.
  void CheckNext(const ByteRange& asked, const FileVersion& known) const;

 private:
  struct ContentRange {
    ByteRange range;
    int64_t total;
  };
  static std::optional<ContentRange> ParseContentRange(std::string_view text);
  // What the body is, once the status allows it.
  ContentRange Content(const ByteRange& asked) const;

  size_t headerBytes_ = 0;
  std::string statusLine_;
  int status_ = 0;
  std::string contentRange_;
  std::string contentLength_;
  std::string etag_;
  std::string lastModified_;
};

}  // namespace qel
