#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "qel/QELRuntimeError.h"

namespace qel {

// Larger files are refused: no disk holds one, and positions can be added up without overflow.
constexpr int64_t kMaxFileBytes = int64_t{1} << 53;

// Bytes `offset` to `offset + size - 1` of a file; below zero, its last `-offset` bytes.
struct ByteRange {
  int64_t offset = 0;
  int64_t size = 0;

  static ByteRange Last(int64_t size) { return {-size, size}; }
  int64_t End() const { return offset + size; }
  // The part of it that a file of so many bytes has.
  ByteRange Inside(int64_t fileSize) const;
  // "first-last" or "-count", as it stands in requests and answers.
  std::string Text() const;
};

// Which version of a file the server has: requests name it, answers are held against it.
struct FileVersion {
  int64_t size = 0;
  std::string etag;  // as sent, weak ones with their W/; empty when the server gives none
  std::string lastModified;

  bool operator==(const FileVersion&) const = default;

  // The header line that asks for this version only, empty when none can: If-Match takes strong
  // validators only, and what a server sent goes back to it only if it is made of the bytes that a
  // validator may have (RFC 9110, sections 8.8.3 and 5.6.7).
  std::string Precondition() const;
  // Whether another file never has the same one: only of a strong ETag is that so, as files of one
  // size may follow each other within the second that a date tells.
  bool IsCertain() const;
};

// The server has another version of the file than the one that its index was read from.
class FileChangedError : public QELRuntimeError {
 public:
  using QELRuntimeError::QELRuntimeError;
};

// The head of an answer to a request for a byte range (RFC 9110, section 14): the status and the
// values of those fields that count, empty where the server sent none. A value; what it holds may
// be anything.
struct HttpResponse {
  int status = 0;
  std::string contentRange;
  std::string contentLength;
  std::string etag;
  std::string lastModified;

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
};

}  // namespace qel
