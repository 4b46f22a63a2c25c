#pragma once

#include <QStringView>

namespace sorv {

// Orders two version strings: negative, zero or positive as `a` is older than,
// the same as or newer than `b`.
//
// The leading dotted numbers compare as numbers, a missing component counting
// as 0: "1.10" > "1.9", "1.0" == "1.0.0", "01.2" == "1.2". Whatever follows
// them is a pre-release suffix ("-beta.2", "rc1", "b3", "-dev"), which sorts
// before the release it precedes: "1.0-rc1" < "1.0" < "1.0.1-beta". Suffixes
// compare piece by piece: numbers as numbers, the usual labels in their order
// (dev < alpha/a < beta/b < pre/preview < rc/c, other words after them, by
// spelling), and a longer suffix after its own prefix ("beta" < "beta.1").
// A leading "v" and build metadata after "+" are ignored.
int compareVersions(QStringView a, QStringView b);

} // namespace sorv
