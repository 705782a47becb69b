#pragma once

#include <cstdint>
#include <string>

#include "qel/Export.h"

namespace Moravel::Player {

// One storage server, by its TCP address and port. A value.
class QEL_API StorageId {
 public:
  StorageId() = default;
  StorageId(std::string address, int64_t port);

  const std::string& Address() const { return address_; }
  int64_t Port() const { return port_; }

  // "ADDRESS:PORT"; an IPv6 address stands in brackets.
  std::string ToString() const;

  bool operator<(const StorageId& other) const;
  bool operator==(const StorageId& other) const = default;

 private:
  std::string address_;
  int64_t port_ = 0;
};

}  // namespace Moravel::Player
