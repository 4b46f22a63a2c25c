#pragma once

#include <QLoggingCategory>

namespace sorv {

// The video recorder writes to the system log (Qt's logging, which ends up in
// the journal or on standard error), not to the pictogram console lines.
Q_DECLARE_LOGGING_CATEGORY(lcVideo)

} // namespace sorv
