#include "qelCore/ParameterPrototype.h"

#include <utility>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

using Prototype = ParametersCollectionPrototype;

const char* Name(Prototype::Type type) {
  switch (type) {
    case Prototype::Type::Int64:
      return "an int64";
    case Prototype::Type::UTF8String:
      return "a string";
    case Prototype::Type::FourCC:
      break;
  }
  return "a FourCC";
}

std::string Keys(const Prototype::ParameterMap& parameters) {
  std::string keys;
  for (const auto& [key, parameter] : parameters)
    keys += (keys.empty() ? "\"" : ", \"") + key + "\"";
  return keys;
}

class Instance : public IParametersCollectionInstance {
 public:
  explicit Instance(std::shared_ptr<const Prototype> prototype)
      : prototype_(std::move(prototype)) {}

  void SetParamInt64(const std::string& key, int64_t value) override {
    Set(key, Prototype::Type::Int64, value);
  }
  void SetParamUTF8String(const std::string& key, std::string value) override {
    Set(key, Prototype::Type::UTF8String, std::move(value));
  }
  void SetParamFourCC(const std::string& key, FourCC value) override {
    Set(key, Prototype::Type::FourCC, value);
  }

  std::optional<int64_t> GetParamInt64(const std::string& key) const override {
    return Get<int64_t>(key, Prototype::Type::Int64);
  }
  std::optional<std::string> GetParamUTF8String(const std::string& key) const override {
    return Get<std::string>(key, Prototype::Type::UTF8String);
  }
  std::optional<FourCC> GetParamFourCC(const std::string& key) const override {
    return Get<FourCC>(key, Prototype::Type::FourCC);
  }

 private:
  const Prototype::Parameter& Find(const std::string& key, Prototype::Type type) const {
    const auto entry = prototype_->Parameters().find(key);
    if (entry == prototype_->Parameters().end())
      QEL_RAISE("there is no parameter \"" << key << "\"; there are "
                                           << Keys(prototype_->Parameters()));
    if (entry->second.type != type)
      QEL_RAISE("parameter \"" << key << "\" is " << Name(entry->second.type) << ", not "
                               << Name(type));
    return entry->second;
  }

  void Set(const std::string& key, Prototype::Type type, Prototype::Value value) {
    Find(key, type);
    values_.insert_or_assign(key, std::move(value));
  }

  template <typename T>
  std::optional<T> Get(const std::string& key, Prototype::Type type) const {
    const Prototype::Parameter& parameter = Find(key, type);
    const auto set = values_.find(key);
    const Prototype::Value& value = set == values_.end() ? parameter.defaultValue : set->second;
    const T* const typed = std::get_if<T>(&value);
    return typed == nullptr ? std::nullopt : std::optional<T>(*typed);
  }

  const std::shared_ptr<const Prototype> prototype_;
  std::map<std::string, Prototype::Value> values_;
};

}  // namespace

ParametersCollectionInstancePtr ParametersCollectionPrototype::CreateInstance() const {
  return std::make_shared<Instance>(shared_from_this());
}

ParametersCollectionInstancePtr CreateParametersCollectionInstance(
    ParametersCollectionPrototypeConstPtr prototype) {
  return prototype ? prototype->CreateInstance() : nullptr;
}

}  // namespace qel
