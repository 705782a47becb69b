#pragma once

#include <memory>
#include <string>

#include "qel/ElementFactory.h"
#include "qel/Export.h"
#include "qel/Parameters.h"

// How elements enter the framework's registry.
namespace qel {

// What an element is found and made with. All are needed; a manifest, an initial and an update
// configuration may be without keys (qelCore/ParameterPrototype.h).
struct ElementRegistration {
  std::shared_ptr<IElementFactory> factory;
  std::shared_ptr<const IParametersCollectionInstance> manifest;
  ParametersCollectionPrototypeConstPtr initConfig;
  ParametersCollectionPrototypeConstPtr updateConfig;
};

// Registers an implementation under (the factory's type, implementationName, type), in place of an
// earlier one of that name. Thread-safe.
QEL_API void RegisterElement(const std::string& implementationName, const std::string& type,
                             ElementRegistration registration);

}  // namespace qel
