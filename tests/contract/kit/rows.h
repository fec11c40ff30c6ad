// The register of rows: which native has which, and which natives cannot fail and why.
#ifndef QUORL_CONTRACT_ROWS_H
#define QUORL_CONTRACT_ROWS_H

#include <map>
#include <string>
#include <vector>

#include "kit/contract.h"

namespace contract {

// What the rows say of one native.
struct About {
    std::string family;
    int rows = 0;
    int failures = 0;
    std::string cannot_fail = {};  // the reason, for a native without failure rows
};
using Register = std::map<std::string, About>;

// What is wrong with a register, one line for each: natives without a failure row or a reason, natives without rows, rows of
// no native.
std::vector<std::string> gaps(const Register& natives, const std::vector<std::string>& declared);

void declare_that_it_cannot_fail(const Native& native, const std::string& reason);

}  // namespace contract

#endif
