#include "host/Party.h"

#include <functional>

#include "veltsys/Address.h"

namespace VELT::host {

Party VisitorParty(const std::string& address) {
  const Party hash = std::hash<std::string>()(SourceKey(address));
  return hash | kLines | kLines / 2;
}

}  // namespace VELT::host
