// The contenders of the certified case.
#pragma once

#include "network/sides.h"

namespace bench::certified {

extern const network::Side quorlSide;         // the listener keeps what it has confirmed in memory
extern const network::Side quorlKeepingSide;  // and here in a ledger of its own
extern const network::Side jetStreamSide;

}  // namespace bench::certified
