// The register of rows: which native has which, and which natives cannot fail and why.
#ifndef QUORL_CONTRACT_ROWS_H
#define QUORL_CONTRACT_ROWS_H

#include <string>

#include "kit/contract.h"

namespace contract {

void declare_that_it_cannot_fail(const Native& native, const std::string& reason);

}  // namespace contract

#endif
