#include "elements/storage/HttpResponse.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlank = " \t\r\n";
  const size_t first = text.find_first_not_of(kBlank);
  return first == std::string_view::npos
             ? std::string_view()
             : text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
    return std::tolower(x) == std::tolower(y);
  });
}

// A number of nothing but digits that fits.
std::optional<int64_t> ParseNumber(std::string_view text) {
  int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || text.front() == '-')
    return std::nullopt;
  return number;
}

}  // namespace

std::string ByteRange::Text() const {
  return std::to_string(offset) + "-" + std::to_string(End() - 1);
}

void HttpResponse::AddHeaderLine(std::string_view line) {
  headerBytes_ += line.size();
  if (headerBytes_ > kMaxHeaderBytes) {
    throw QELRuntimeError(
        QEL_TEXT("server sent more than the " << kMaxHeaderBytes << " header bytes allowed"));
  }
  line = Trim(line);
  if (line.starts_with("HTTP/")) {
    const size_t headerBytes = headerBytes_;
    *this = HttpResponse();
    headerBytes_ = headerBytes;
    statusLine_ = line.substr(0, 80);
    const size_t space = line.find(' ');
    if (space != std::string_view::npos)
      status_ = static_cast<int>(ParseNumber(line.substr(space + 1, 3)).value_or(0));
    return;
  }
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos)
    return;
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = Trim(line.substr(colon + 1));
  if (EqualsIgnoringCase(name, "content-range"))
    contentRange_ = value;
  else if (EqualsIgnoringCase(name, "content-length"))
    contentLength_ = value;
  else if (EqualsIgnoringCase(name, "etag"))
    etag_ = value;
  else if (EqualsIgnoringCase(name, "last-modified"))
    lastModified_ = value;
}

std::optional<HttpResponse::ContentRange> HttpResponse::ParseContentRange(std::string_view text) {
  constexpr std::string_view kUnit = "bytes ";
  const size_t dash = text.find('-');
  const size_t slash = text.find('/');
  if (!text.starts_with(kUnit) || dash == std::string_view::npos ||
      slash == std::string_view::npos || slash < dash)
    return std::nullopt;
  const auto first = ParseNumber(text.substr(kUnit.size(), dash - kUnit.size()));
  const auto last = ParseNumber(text.substr(dash + 1, slash - dash - 1));
  const auto total = ParseNumber(text.substr(slash + 1));
  if (!first || !last || !total || *last < *first || *last >= *total)
    return std::nullopt;
  return ContentRange{{*first, *last - *first + 1}, *total};
}

HttpResponse::ContentRange HttpResponse::Content(const ByteRange& asked) const {
  if (status_ == 416)
    throw QELRuntimeError("server answered 416: the file is empty or ends before byte " +
                          std::to_string(asked.offset));
  if (status_ == 206) {
    if (const auto content = ParseContentRange(contentRange_))
      return *content;
    throw QELRuntimeError(QEL_TEXT("server answered Content-Range \""
                                   << contentRange_.substr(0, 80) << "\" where bytes "
                                   << asked.Text() << "/SIZE was asked for"));
  }
  const auto length = ParseNumber(contentLength_);
  if (status_ == 200 && length && asked.offset == 0 && *length <= asked.size && *length > 0)
    return {{0, *length}, *length};  // the whole file was asked for
  throw QELRuntimeError(QEL_TEXT("server answered "
                                 << (statusLine_.empty() ? "nothing" : statusLine_)
                                 << " where 206 Partial Content of bytes " << asked.Text()
                                 << " was asked for"));
}

FileVersion HttpResponse::CheckFirst(const ByteRange& asked) const {
  const ContentRange content = Content(asked);
  if (content.range.offset != asked.offset ||
      content.range.End() != std::min(asked.End(), content.total)) {
    throw QELRuntimeError(QEL_TEXT("server answered bytes " << content.range.Text() << " where "
                                                            << asked.Text() << " was asked for"));
  }
  return {content.total, etag_, lastModified_};
}

void HttpResponse::CheckNext(const ByteRange& asked, const FileVersion& known) const {
  if (status_ == 412 || status_ == 416) {
    throw FileChangedError(
        QEL_TEXT("the file was replaced on the server, it answered " << status_));
  }
  const ContentRange content = Content(asked);
  const bool isSameVersion =
      known.etag.empty() ? known.lastModified == lastModified_ : known.etag == etag_;
  if (content.total != known.size || !isSameVersion) {
    throw FileChangedError(QEL_TEXT("the file was replaced on the server: it had "
                                    << known.size << " bytes, ETag " << known.etag << ", and has "
                                    << content.total << ", ETag " << etag_.substr(0, 80)));
  }
  if (content.range.offset != asked.offset || content.range.size != asked.size) {
    throw QELRuntimeError(QEL_TEXT("server answered bytes " << content.range.Text() << " where "
                                                            << asked.Text() << " was asked for"));
  }
}

}  // namespace qel
