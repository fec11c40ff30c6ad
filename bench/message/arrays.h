// What arrays of a thousand numbers cost beside one copy of their bytes.
#pragma once

namespace bench::message {

// Measures adding and reading arrays and prints a line for each figure.
void reportArrays();

}  // namespace bench::message
