// Telling Wine from Windows, for the few results where Wine differs.
#pragma once

namespace zel_test {

/// True when the Windows build runs under Wine rather than Windows; false on
/// every other platform. Tests expect Windows' result and allow Wine's only
/// where the two are known to differ, saying so.
bool RunningUnderWine();

}  // namespace zel_test
