#include "cli/commands.h"
#include "cli/command.h"

namespace sorv::cli {

const std::vector<Command>& commands()
{
    static const std::vector<Command> all = [] {
        std::vector<Command> list;
        for (auto make :
             {recordCommand, devicesCommand, targetsCommand, uploadCommand, pendingCommand,
              mixCommand, loginCommand, logoutCommand, whoamiCommand, passkeysCommand,
              recordingsCommand, meetingsCommand, joinCommand, stopBotCommand, followCommand})
            list.push_back(make());
        return list;
    }();
    return all;
}

QString recordUsage()
{
    return QStringLiteral("record [--duration SECONDS] [--device ID] [--video] [--target ID] "
                          "[--live server|on-device] [--language LOCALE] [--save|--discard]");
}

Command recordCommand()
{
    return {QStringLiteral("record"), recordUsage(),
            QStringLiteral("record the microphone (--device: one from `devices`) and system audio "
                           "until the duration ends or Ctrl-C, then keep the WAV file and print "
                           "its path, upload it with --save, or delete it with --discard; --video "
                           "also records the screen or a target into an MP4; --live shows the "
                           "service's live transcript or the on-device preview while it records"),
            captureCommandRun(QStringLiteral("record"))};
}

Command devicesCommand()
{
    return {QStringLiteral("devices"), QStringLiteral("devices"),
            QStringLiteral("list the microphones: id, name and the default mark (the id is what "
                           "record --device takes)"),
            captureCommandRun(QStringLiteral("devices"))};
}

Command targetsCommand()
{
    return {QStringLiteral("targets"), QStringLiteral("targets"),
            QStringLiteral("list what a video recording can capture: displays, applications, "
                           "windows"),
            captureCommandRun(QStringLiteral("targets"))};
}

Command mixCommand()
{
    return {QStringLiteral("mix"), QStringLiteral("mix MIC.wav SYSTEM.wav OUT.wav"),
            QStringLiteral("mix a microphone and a system-audio file (48 kHz) the way a recording "
                           "is mixed, into a 32-bit float mono WAV"),
            captureCommandRun(QStringLiteral("mix"))};
}

} // namespace sorv::cli
