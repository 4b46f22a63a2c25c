#include "cli/commands.h"
#include "cli/command.h"

namespace sorv::cli {

const std::vector<Command>& commands()
{
    static const std::vector<Command> all = [] {
        std::vector<Command> list;
        for (auto make :
             {recordCommand, uploadCommand, mixCommand, loginCommand, logoutCommand, whoamiCommand,
              recordingsCommand, meetingsCommand, joinCommand, stopBotCommand, targetsCommand})
            list.push_back(make());
        return list;
    }();
    return all;
}

} // namespace sorv::cli
