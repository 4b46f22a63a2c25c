#include "cli/commands.h"
#include "cli/command.h"

namespace sorv::cli {

const std::vector<Command>& commands()
{
    static const std::vector<Command> all = [] {
        std::vector<Command> list;
        for (auto make :
             {recordCommand, devicesCommand, targetsCommand, uploadCommand, mixCommand,
              loginCommand, logoutCommand, whoamiCommand, passkeysCommand, recordingsCommand,
              meetingsCommand, joinCommand, stopBotCommand, followCommand})
            list.push_back(make());
        return list;
    }();
    return all;
}

} // namespace sorv::cli
