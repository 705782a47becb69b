#include "elements/storage/HttpResponse.h"

#include <algorithm>
#include <charconv>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr size_t kMaxValidator = 256;

bool IsEntityTag(std::string_view tag) {
  const auto isAllowed = [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte == 0x21 || (byte >= 0x23 && byte <= 0x7E) || byte >= 0x80;
  };
  return tag.size() >= 2 && tag.size() <= kMaxValidator && tag.front() == '"' &&
         tag.back() == '"' && std::all_of(tag.begin() + 1, tag.end() - 1, isAllowed);
}

// By its letters; whether there is such a day is the server's own concern.
bool IsDate(std::string_view date) {
  const auto isAllowed = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == ' ' ||
           c == ',' || c == ':' || c == '-';
  };
  return !date.empty() && date.size() <= kMaxValidator &&
         std::all_of(date.begin(), date.end(), isAllowed);
}

// A number of nothing but digits that fits.
std::optional<int64_t> ParseNumber(std::string_view text) {
  int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || text.front() == '-')
    return std::nullopt;
  return number;
}

// What it says of the track, for people; null where the number must do.
const char* MeaningOf(int status) {
  switch (status) {
    case 200:
      return "the whole file, it serves no byte ranges";
    case 204:
      return "the track is empty";
    case 401:
    case 403:
      return "it does not allow this track to be read";
    case 404:
    case 410:
      return "it has no such track";
    case 408:
    case 504:
      return "it took too long, try again";
    case 429:
      return "it was asked too often, try again later";
    case 503:
      return "it is too busy or down for a while, try again later";
    default:
      return status >= 500 ? "it failed, its log may say why" : nullptr;
  }
}

}  // namespace

ByteRange ByteRange::Inside(int64_t fileSize) const {
  const int64_t first = offset < 0 ? std::max<int64_t>(fileSize + offset, 0) : offset;
  const int64_t behind = offset < 0 ? fileSize : std::min(End(), fileSize);
  return {first, behind - first};
}

std::string ByteRange::Text() const {
  if (offset < 0)
    return std::to_string(offset);
  return std::to_string(offset) + "-" + std::to_string(End() - 1);
}

std::string FileVersion::Precondition() const {
  if (IsEntityTag(etag))
    return "If-Match: " + etag;
  if (etag.empty() && IsDate(lastModified))
    return "If-Unmodified-Since: " + lastModified;
  return {};
}

bool FileVersion::IsCertain() const {
  return IsEntityTag(etag);
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
  if (status == 416)
    throw QELRuntimeError(
        "server answered 416: the file " +
        (asked.offset == 0 ? "is empty" : "ends before byte " + std::to_string(asked.offset)));
  if (status == 206) {
    const auto content = ParseContentRange(contentRange);
    if (content && content->total > kMaxFileBytes) {
      throw QELRuntimeError(QEL_TEXT("server answered that the file has "
                                     << content->total << " bytes, at most " << kMaxFileBytes
                                     << " are allowed"));
    }
    if (content)
      return *content;
    throw QELRuntimeError(QEL_TEXT("server answered Content-Range \""
                                   << contentRange.substr(0, 80) << "\" where bytes "
                                   << asked.Text() << "/SIZE was asked for"));
  }
  const auto length = ParseNumber(contentLength);
  if (status == 200 && length && asked.offset == 0 && *length <= asked.size && *length > 0)
    return {{0, *length}, *length};  // the whole file was asked for
  if (const char* const meaning = MeaningOf(status))
    throw QELRuntimeError(QEL_TEXT("server answered " << status << ": " << meaning));
  throw QELRuntimeError(QEL_TEXT("server answered " << status << " where 206 and bytes "
                                                    << asked.Text() << " were asked for"));
}

FileVersion HttpResponse::CheckFirst(const ByteRange& asked) const {
  const ContentRange content = Content(asked);
  const ByteRange expected = asked.Inside(content.total);
  if (content.range.offset != expected.offset || content.range.size != expected.size) {
    throw QELRuntimeError(QEL_TEXT("server answered bytes " << content.range.Text() << " where "
                                                            << asked.Text() << " was asked for"));
  }
  return {content.total, etag, lastModified};
}

void HttpResponse::CheckNext(const ByteRange& asked, const FileVersion& known) const {
  if (status == 412 || status == 416) {
    throw FileChangedError(QEL_TEXT("the file was replaced on the server, it answered " << status));
  }
  const ContentRange content = Content(asked);
  const bool isSameVersion =
      known.etag.empty() ? known.lastModified == lastModified : known.etag == etag;
  if (content.total != known.size || !isSameVersion) {
    throw FileChangedError(QEL_TEXT("the file was replaced on the server: it had "
                                    << known.size << " bytes, ETag " << known.etag.substr(0, 80)
                                    << ", and has " << content.total << ", ETag "
                                    << etag.substr(0, 80)));
  }
  if (content.range.offset != asked.offset || content.range.size != asked.size) {
    throw QELRuntimeError(QEL_TEXT("server answered bytes " << content.range.Text() << " where "
                                                            << asked.Text() << " was asked for"));
  }
}

}  // namespace qel
