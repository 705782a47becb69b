#include "sinks/Picture.h"

namespace Moravel::Play {

const char* NameOf(PictureState state) {
  switch (state) {
    case PictureState::Fine:
      break;
    case PictureState::Damaged:
      return "damaged";
    case PictureState::Undecodable:
      return "undecodable";
    case PictureState::Missing:
      return "missing";
    case PictureState::Unreadable:
      return "unreadable";
    case PictureState::Late:
      return "late";
  }
  return "fine";
}

}  // namespace Moravel::Play
