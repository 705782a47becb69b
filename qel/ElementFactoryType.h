#pragma once

#include <string>

#include "qel/Export.h"

namespace qel {

// Kinds of elements that the registry knows; those that nobody here uses are left out.
enum ElementFactoryType { ElementFactoryType_Source = 4, ElementFactoryType_VideoDecoder = 9 };

// The framework's label of a factory type, as it stands in messages.
QEL_API std::string GetLabel(ElementFactoryType factoryType);

}  // namespace qel
