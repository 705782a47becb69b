#pragma once

#include <map>
#include <string>
#include <variant>

#include "qel/Export.h"
#include "qel/Parameters.h"

namespace qel {

// The keys of a parameter collection: the type of each, and its default if it has one.
class QEL_API ParametersCollectionPrototype
    : public IParametersCollectionPrototype,
      public std::enable_shared_from_this<ParametersCollectionPrototype> {
 public:
  enum class Type { Int64, UTF8String, FourCC };
  // monostate: no value.
  using Value = std::variant<std::monostate, int64_t, std::string, FourCC>;
  struct Parameter {
    Type type;
    Value defaultValue = {};
  };
  using ParameterMap = std::map<std::string, Parameter>;

  explicit ParametersCollectionPrototype(ParameterMap parameters)
      : parameters_(std::move(parameters)) {}

  ParametersCollectionInstancePtr CreateInstance() const override;

  const ParameterMap& Parameters() const { return parameters_; }

 private:
  const ParameterMap parameters_;
};

}  // namespace qel
