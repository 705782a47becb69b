#include "qelCore/Registry.h"

#include <map>
#include <mutex>
#include <tuple>
#include <utility>

namespace qel {

namespace {

using Key = std::tuple<ElementFactoryType, std::string, std::string>;

// The registry of the process: elements are looked up by name from anywhere.
class Registry {
 public:
  static Registry& Instance() {
    static Registry registry;
    return registry;
  }

  void Set(Key key, ElementRegistration registration) {
    const std::lock_guard<std::mutex> lock(entriesAccess_);
    entries_.insert_or_assign(std::move(key), std::move(registration));
  }

  ElementRegistration Get(const Key& key) {
    const std::lock_guard<std::mutex> lock(entriesAccess_);
    const auto entry = entries_.find(key);
    return entry == entries_.end() ? ElementRegistration() : entry->second;
  }

 private:
  std::mutex entriesAccess_;  // guards entries_
  std::map<Key, ElementRegistration> entries_;
};

}  // namespace

void RegisterElement(const std::string& implementationName, const std::string& type,
                     ElementRegistration registration) {
  const ElementFactoryType factoryType = registration.factory->GetFactoryType();
  Registry::Instance().Set({factoryType, implementationName, type}, std::move(registration));
}

std::string GetLabel(ElementFactoryType factoryType) {
  switch (factoryType) {
    case ElementFactoryType_Source:
      return "Source";
    case ElementFactoryType_VideoDecoder:
      return "VideoDecoder";
  }
  return "ElementFactoryType(" + std::to_string(factoryType) + ")";
}

std::shared_ptr<IElementFactory> GetFactory(ElementFactoryType factoryType,
                                            const std::string& implementationName,
                                            const std::string& type) {
  return Registry::Instance().Get({factoryType, implementationName, type}).factory;
}

std::shared_ptr<const IParametersCollectionInstance> GetManifest(
    ElementFactoryType factoryType, const std::string& implementationName,
    const std::string& type) {
  return Registry::Instance().Get({factoryType, implementationName, type}).manifest;
}

ParametersCollectionPrototypeConstPtr GetInitConfigPrototype(ElementFactoryType factoryType,
                                                             const std::string& implementation,
                                                             const std::string& type) {
  return Registry::Instance().Get({factoryType, implementation, type}).initConfig;
}

ParametersCollectionPrototypeConstPtr GetUpdateConfigPrototype(ElementFactoryType factoryType,
                                                               const std::string& implementation,
                                                               const std::string& type) {
  return Registry::Instance().Get({factoryType, implementation, type}).updateConfig;
}

SourceInstance CreateWrapper(std::shared_ptr<ISource> element, std::shared_ptr<const IStep>) {
  return {element, element, element};
}

VideoDecoderInstance CreateWrapper(std::shared_ptr<IVideoDecoder> element,
                                   std::shared_ptr<const IStep>) {
  return {element, element, element};
}

}  // namespace qel
