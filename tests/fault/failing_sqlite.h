// Has SQLite take its memory where a test can make the n-th allocation fail.
#pragma once

namespace quorltest {

// Before SQLite is used. False: it was.
bool failSqliteToo();

}  // namespace quorltest
