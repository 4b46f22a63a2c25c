#pragma once

#include "cli/command.h"
#include "recording/recordingrepair.h"

namespace sorv::cli {

// One function per command, each in its own file.
Command uploadCommand();
Command loginCommand();
Command passkeysCommand();
Command logoutCommand();
Command whoamiCommand();
Command recordingsCommand();
Command meetingsCommand();
Command joinCommand();
Command stopBotCommand();
Command followCommand();
Command pendingCommand();
// upload --all: every recording not uploaded yet, one after the other.
int runUploadAll(CommandContext& ctx);

// The commands that record, or ask the sound server or the screen: they need
// the capture stack (PulseAudio, FFmpeg and x264, xcb, pocketsphinx). Their
// names and help are here; how they run is the program's choice through
// captureCommandRun(), which each program defines once: in-process
// (capturecommands.cpp, part of sorvelandrix_cli) or handed to the capture
// program (capturehandoff.cpp, in `sorvelandrix`), so that every other
// command starts without those libraries.
Command recordCommand();
Command devicesCommand();
Command targetsCommand();
Command mixCommand();
QString recordUsage();
CommandFn captureCommandRun(const QString& name);
// What rewrites a video left by a crash: FFmpeg's, in the capture program;
// none in `sorvelandrix`, which hands such work to it.
Mp4Remuxer captureMp4Remuxer();

// The capture commands themselves, each in its own file.
int runRecord(CommandContext& ctx);
int runDevices(CommandContext& ctx);
int runTargets(CommandContext& ctx);
int runMix(CommandContext& ctx);

} // namespace sorv::cli
