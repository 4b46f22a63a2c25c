// A local service that misbehaves on purpose, for bench/hostile_peer.sh:
// the demo account signs in as usual, and the next live connections or
// meeting streams get what a broken or hostile service might send.
//
//   hostile_peer PORT DATA_DIR interim BYTES   interim pieces that never extend
//                                              the text, BYTES in all
//   hostile_peer PORT DATA_DIR message BYTES   one interim message of BYTES
//   hostile_peer PORT DATA_DIR finals BYTES    final segments of 1 000
//                                              characters, BYTES in all
//   hostile_peer PORT DATA_DIR line BYTES      a meeting stream whose data line
//                                              runs BYTES without a line end,
//                                              then "after the line"
//   hostile_peer PORT DATA_DIR deaf FRAMES     live connections that take FRAMES
//                                              audio frames and then read
//                                              nothing more (pings included)
//
// Prints "meeting ID" (the meeting to follow) once it listens, and on SIGTERM
// or SIGINT, before it ends, "live N connections, F frames" (what the live
// endpoint took).

#include "core/log.h"
#include "core/signalnotifier.h"
#include "localservice/localservice.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>
#include <cstdio>

using namespace sorv;

namespace {

// Distinct short pieces: none begins with what came before, so each one is
// added to the speaker's interim text.
local::LiveScript interimFlood(qint64 bytes)
{
    local::LiveScript script;
    qint64 sent = 0;
    for (int i = 0; sent < bytes; ++i) {
        const QByteArray message =
            QJsonDocument(QJsonObject{{QStringLiteral("tokens"),
                                       QJsonArray{QJsonObject{
                                           {QStringLiteral("text"), QStringLiteral("w%1 ").arg(i)},
                                           {QStringLiteral("speaker"), QStringLiteral("0")},
                                           {QStringLiteral("is_final"), false}}}}})
                .toJson(QJsonDocument::Compact);
        script.sendText(message);
        sent += message.size();
    }
    return script;
}

local::LiveScript bigMessage(qint64 bytes)
{
    const QByteArray head = R"({"type":"partial","speaker":"0","text":")";
    const QByteArray tail = R"("})";
    return local::LiveScript().sendText(head + QByteArray(bytes, 'a') + tail);
}

local::LiveScript finals(qint64 bytes)
{
    local::LiveScript script;
    const QString text = QStringLiteral("x").repeated(1000);
    for (qint64 sent = 0, i = 0; sent < bytes; ++i) {
        const QByteArray message =
            QJsonDocument(QJsonObject{{QStringLiteral("type"), QStringLiteral("segment")},
                                      {QStringLiteral("speaker"), QString::number(i % 2)},
                                      {QStringLiteral("text"), text},
                                      {QStringLiteral("is_final"), true}})
                .toJson(QJsonDocument::Compact);
        script.sendText(message);
        sent += message.size();
    }
    return script;
}

local::MeetingStreamScript longLine(qint64 bytes)
{
    local::MeetingStreamScript script;
    script.raw("data: ");
    const QByteArray chunk(qsizetype{64} * 1024, 'a');
    for (qint64 sent = 0; sent < bytes; sent += chunk.size())
        script.raw(chunk); // shared, not copied
    // Then words that show whether the line was read through.
    return script.raw("\n\n").data(
        {{QStringLiteral("type"), QStringLiteral("transcript")},
         {QStringLiteral("segments"),
          QJsonArray{QJsonObject{{QStringLiteral("speaker"), QStringLiteral("0")},
                                 {QStringLiteral("text"), QStringLiteral("after the line")}}}}});
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    bool portOk = false;
    bool bytesOk = false;
    const uint port = args.value(1).toUInt(&portOk);
    const qint64 bytes = args.value(4).toLongLong(&bytesOk);
    const QString mode = args.value(3);
    if (args.size() != 5 || !portOk || !bytesOk || bytes <= 0 ||
        !QStringList{QStringLiteral("interim"), QStringLiteral("message"), QStringLiteral("finals"),
                     QStringLiteral("line"), QStringLiteral("deaf")}
             .contains(mode)) {
        std::fputs("usage: hostile_peer PORT DATA_DIR interim|message|finals|line|deaf BYTES\n",
                   stderr);
        return 2;
    }
    setLogSink([](const QString&) {});

    local::LocalService::Options options;
    options.dataDirectory = args.at(2);
    local::LocalService service(options);
    QString error;
    if (!service.start(static_cast<std::uint16_t>(port), &error)) {
        std::fprintf(stderr, "hostile_peer: %s\n", qPrintable(error));
        return 1;
    }
    if (mode == QLatin1String("interim"))
        service.scriptLive(interimFlood(bytes));
    else if (mode == QLatin1String("message"))
        service.scriptLive(bigMessage(bytes));
    else if (mode == QLatin1String("finals"))
        service.scriptLive(finals(bytes));
    else if (mode == QLatin1String("line"))
        service.scriptMeetingStream(longLine(bytes));
    else
        // Every reconnection meets the same.
        for (int i = 0; i < 1000; ++i)
            service.scriptLive(local::LiveScript().deafen(int(bytes)));
    const QString meeting = service.addMeeting(
        local::LocalService::kDemoEmail, QStringLiteral("https://meet.google.com/abc-defg-hij"));
    std::printf("meeting %s\n", qPrintable(meeting));
    std::fflush(stdout);

    SignalNotifier signals({SIGINT, SIGTERM});
    QObject::connect(&signals, &SignalNotifier::received, &app, &QCoreApplication::quit);
    const int rc = QCoreApplication::exec();
    const QList<local::LiveSession> live = service.liveSessions();
    int frames = 0;
    for (const local::LiveSession& s : live)
        frames += s.frames;
    std::printf("live %d connections, %d frames\n", int(live.size()), frames);
    std::fflush(stdout);
    service.stop();
    return rc;
}
