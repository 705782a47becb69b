#include "storage-server/Judgement.h"

#include <locale.h>
#include <time.h>

#include <optional>

namespace Moravel::Player {

namespace {

// Dates of HTTP are in English, whatever the locale of the process is.
constexpr const char* kDateFormat = "%a, %d %b %Y %H:%M:%S GMT";

locale_t EnglishLocale() {
  static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

std::optional<time_t> ParseDate(const char* text) {
  struct tm parts {};
  const char* end = ::strptime_l(text, kDateFormat, &parts, EnglishLocale());
  return end != nullptr && *end == 0 ? std::optional(::timegm(&parts)) : std::nullopt;
}

// The strong comparison: weak tags ("W/" in front) match nothing.
bool MatchesAny(std::string_view list, const std::string& etag) {
  if (list == "*") {
    return true;
  }
  const size_t found = list.find(etag);
  return found != list.npos && (found == 0 || list[found - 1] != '/');
}

bool PreconditionsHold(const Request& request, const FileState& file, const std::string& etag) {
  if (const char* tags = request[MHD_HTTP_HEADER_IF_MATCH]) {
    return MatchesAny(tags, etag);
  }
  const char* date = request[MHD_HTTP_HEADER_IF_UNMODIFIED_SINCE];
  const std::optional<time_t> limit = date != nullptr ? ParseDate(date) : std::nullopt;
  return !limit || file.ModifiedAt() <= *limit;
}

// Empty for the whole file.
std::optional<ByteRange> WantedRange(const Request& request, const FileState& file,
                                     const std::string& etag) {
  const char* range = request[MHD_HTTP_HEADER_RANGE];
  const char* validator = request[MHD_HTTP_HEADER_IF_RANGE];
  const bool current =
      validator == nullptr || validator == etag || validator == DateText(file.ModifiedAt());
  return range != nullptr && current ? ParseRange(range, file.Size()) : std::nullopt;
}

}  // namespace

std::string DateText(time_t time) {
  struct tm parts {};
  ::gmtime_r(&time, &parts);
  char text[64];
  return {text, ::strftime_l(text, sizeof text, kDateFormat, &parts, EnglishLocale())};
}

Judgement Judge(const Request& request, const FileState& file) {
  const std::string etag = file.ETag();
  if (!PreconditionsHold(request, file, etag)) {
    return {MHD_HTTP_PRECONDITION_FAILED, {0, 0}};
  }
  const bool get = request.Method() == MHD_HTTP_METHOD_GET;
  const std::optional<ByteRange> range = get ? WantedRange(request, file, etag) : std::nullopt;
  if (!range) {
    return {MHD_HTTP_OK, {0, file.Size()}};
  }
  const unsigned status =
      range->size != 0 ? MHD_HTTP_PARTIAL_CONTENT : MHD_HTTP_RANGE_NOT_SATISFIABLE;
  return {status, *range};
}

}  // namespace Moravel::Player
