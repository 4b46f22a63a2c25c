#include "videolog.h"

namespace sorv {

Q_LOGGING_CATEGORY(lcVideo, "sorvelandrix.video", QtInfoMsg)

} // namespace sorv
