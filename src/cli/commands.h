#pragma once

#include "cli/command.h"

namespace sorv::cli {

// One function per command, each in its own file.
Command recordCommand();
Command uploadCommand();
Command mixCommand();
Command loginCommand();
Command logoutCommand();
Command whoamiCommand();
Command recordingsCommand();
Command meetingsCommand();
Command joinCommand();
Command stopBotCommand();
Command targetsCommand();

} // namespace sorv::cli
