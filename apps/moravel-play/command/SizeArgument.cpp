#include "command/SizeArgument.h"

#include <string_view>

#include "command/TextParts.h"
#include "command/UsageError.h"
#include "elements/mjpeg/JpegPicture.h"

namespace Moravel::Play {

Size ParseSize(const std::string& option, const std::string& text) {
  std::string_view height = text;
  const std::string_view width = TakeBeforeLast(height, 'x').value_or("");
  const auto side = [](std::string_view digits) {
    return static_cast<int>(ParseDigits(digits, qel::mjpeg::kMaxPictureSide).value_or(0));
  };
  const Size size = {side(width), side(height)};
  if (!qel::mjpeg::IsWithinLimits(size.width, size.height)) {
    throw UsageError(option + ' ' + text + ": must be WIDTHxHEIGHT, each from 1 to " +
                     std::to_string(qel::mjpeg::kMaxPictureSide) + " and at most " +
                     std::to_string(qel::mjpeg::kMaxPicturePixels) + " pixels, as in 640x360");
  }
  return size;
}

}  // namespace Moravel::Play
