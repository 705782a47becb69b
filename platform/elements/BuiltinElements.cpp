#include "elements/BuiltinElements.h"

namespace qel {

void RegisterBuiltinElements() {}

}  // namespace qel
