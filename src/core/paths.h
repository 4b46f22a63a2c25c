#pragma once

#include <QString>

namespace sorv {

// Where recordings and staged upload bodies live: $XDG_CACHE_HOME/sorvelandrix,
// created 0700. Unlike /tmp it survives a reboot, so a recording waiting for
// upload is not lost. Returns an empty string when it cannot be created.
QString recordingsDirectory();

// Private data of the application ($XDG_DATA_HOME/sorvelandrix, 0700).
// Empty when it cannot be created.
QString dataDirectory();
// Where that directory is, whether or not it exists or can be created, for
// messages that must name it.
QString dataDirectoryLocation();

// True when `path` lies inside the recordings directory.
bool isInRecordingsDirectory(const QString& path);

} // namespace sorv
