#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "qel/ElementFactoryType.h"
#include "qel/Export.h"
#include "qel/FourCC.h"

namespace qel {

// A set of named, typed values that configures an element. Made from a prototype, which knows the
// keys, their types and their defaults. One thread writes an instance; once it is handed on as an
// instance to const, it may be read by several.
//
// A key that the prototype does not know, or of another type, is refused with QELRuntimeError.
class QEL_API IParametersCollectionInstance {
 public:
  virtual ~IParametersCollectionInstance() = default;

  virtual void SetParamInt64(const std::string& key, int64_t value) = 0;
  virtual void SetParamUTF8String(const std::string& key, std::string value) = 0;
  virtual void SetParamFourCC(const std::string& key, FourCC value) = 0;

  // The value set, else the prototype's default, else nothing.
  virtual std::optional<int64_t> GetParamInt64(const std::string& key) const = 0;
  virtual std::optional<std::string> GetParamUTF8String(const std::string& key) const = 0;
  virtual std::optional<FourCC> GetParamFourCC(const std::string& key) const = 0;
};
using ParametersCollectionInstancePtr = std::shared_ptr<IParametersCollectionInstance>;
using ParametersCollectionInstanceConstPtr = std::shared_ptr<const IParametersCollectionInstance>;

// The keys of a collection, with their types and defaults. Immutable.
class QEL_API IParametersCollectionPrototype {
 public:
  virtual ~IParametersCollectionPrototype() = default;

  // A new instance that holds the defaults.
  virtual ParametersCollectionInstancePtr CreateInstance() const = 0;
};
using ParametersCollectionPrototypeConstPtr = std::shared_ptr<const IParametersCollectionPrototype>;

// The prototypes of an element's configurations; empty when there is no such element.
QEL_API ParametersCollectionPrototypeConstPtr GetInitConfigPrototype(
    ElementFactoryType factoryType, const std::string& implementation, const std::string& type);
QEL_API ParametersCollectionPrototypeConstPtr GetUpdateConfigPrototype(
    ElementFactoryType factoryType, const std::string& implementation, const std::string& type);

// A new instance with the prototype's defaults; empty when the prototype is.
QEL_API ParametersCollectionInstancePtr
CreateParametersCollectionInstance(ParametersCollectionPrototypeConstPtr prototype);

}  // namespace qel
