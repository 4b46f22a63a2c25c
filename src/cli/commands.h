#pragma once

#include "cli/command.h"

namespace sorv::cli {

// One function per command, each in its own file.
Command recordCommand();
Command devicesCommand();
Command uploadCommand();
Command mixCommand();
Command loginCommand();
Command passkeysCommand();
Command logoutCommand();
Command whoamiCommand();
Command recordingsCommand();
Command meetingsCommand();
Command joinCommand();
Command stopBotCommand();
Command followCommand();
Command targetsCommand();

} // namespace sorv::cli
