#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "qel/ElementFactoryType.h"
#include "qel/Elements.h"
#include "qel/Export.h"
#include "qel/Parameters.h"

namespace qel {

// What belongs to each factory type: the element, its sides, and how to get from one to the other.
template <ElementFactoryType T>
struct ElementFactoryType_traits;

template <>
struct ElementFactoryType_traits<ElementFactoryType_Source> {
  using ReturnType = SourcePtr;
  using InstanceType = SourceInstance;
  static InstanceType Build(ReturnType element, StepConstPtr step) {
    return CreateWrapper(std::move(element), std::move(step));
  }
};

template <>
struct ElementFactoryType_traits<ElementFactoryType_VideoDecoder> {
  using ReturnType = VideoDecoderPtr;
  using InstanceType = VideoDecoderInstance;
  static InstanceType Build(ReturnType element, StepConstPtr step) {
    return CreateWrapper(std::move(element), std::move(step));
  }
};

// An entry of the registry.
class QEL_API IElementFactory {
 public:
  virtual ~IElementFactory() = default;

  virtual ElementFactoryType GetFactoryType() = 0;
};

// Makes elements of one factory type with a creation function, which is given the manifest.
// Thread-safe when the function is. Create throws std::bad_function_call when there is none.
template <ElementFactoryType T>
class QEL_API ElementFactory : public IElementFactory {
 public:
  using ReturnType = typename ElementFactoryType_traits<T>::ReturnType;
  using CreationFunction =
      std::function<ReturnType(std::shared_ptr<const IParametersCollectionInstance>)>;

  explicit ElementFactory(CreationFunction create) : create_(std::move(create)) {}

  ElementFactoryType GetFactoryType() override { return T; }

  ReturnType Create(std::shared_ptr<const IParametersCollectionInstance> manifest) {
    return create_(std::move(manifest));
  }

 private:
  const CreationFunction create_;
};

// The registered factory of an implementation, and its manifest; empty when there is none.
QEL_API std::shared_ptr<IElementFactory> GetFactory(ElementFactoryType factoryType,
                                                    const std::string& implementationName,
                                                    const std::string& type);
QEL_API std::shared_ptr<const IParametersCollectionInstance> GetManifest(
    ElementFactoryType factoryType, const std::string& implementationName, const std::string& type);

}  // namespace qel
