// The command line's contract, in-process: exit statuses, the texts and
// JSON events a script reads, the commands printed for the user to run next,
// and refusals of input that cannot work. Against the local service where a
// command talks to the service.

#include "audio/mixer.h"
#include "audio/wavwriter.h"
#include "cli/clirun.h"
#include "cli/command.h"
#include "cli/livetranscriptreporter.h"
#include "core/log.h"
#include "core/paths.h"
#include "core/secretstore.h"
#include "service/authmanager.h"
#include "service/passkeys/passkeymanager.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"
#include "support/jsonlines.h"
#include "support/manualdelays.h"
#include "support/toneprobe.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

#include <sndfile.h>

#include <cmath>

using namespace sorv;
using local::LocalService;
using local::ScriptedAnswer;

namespace {

using Run = test::CliRun;
using test::runCli;

bool writeWav(const QString& path, int rate, int channels, const std::vector<float>& interleaved)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!f)
        return false;
    sf_writef_float(f, interleaved.data(), sf_count_t(interleaved.size()) / channels);
    sf_close(f);
    return true;
}

std::vector<float> tone(size_t frames, float freq, float amp, int channels = 1)
{
    std::vector<float> out(frames * size_t(channels));
    for (size_t i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c)
            out[i * size_t(channels) + size_t(c)] =
                amp * std::sin(2.0f * float(M_PI) * freq * float(i) / 48000.0f);
    return out;
}

// A signed-in user against a fresh local service.
struct World {
    test::IsolatedEnvironment env;
    test::LocalServiceFixture service;

    World()
    {
        SecretStore secrets(SecretStore::Options::fileOnly());
        AuthManager auth(secrets);
        test::signIn(auth);
        service->clearRequestLog();
    }
    QString recording(double seconds)
    {
        QString path = recordingsDirectory() + QStringLiteral("/sorvelandrix_42.wav");
        WavWriter w;
        if (!w.open(path))
            return {};
        w.write(std::vector<float>(size_t(48000 * seconds), 0.25f));
        return path;
    }
};

} // namespace

class TestCliCommands : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        // The in-process commands keep their secrets in the private file.
        qputenv("SORVELANDRIX_SECRETS", "file");
        setLogSink([](const QString&) {});
    }
    void cleanupTestCase() { setLogSink({}); }

    void usageErrors_data();
    void usageErrors();
    void sessionCommands();
    void meetingsThatCannotBeFetchedFail();
    void botIdIsOneSegmentOfThePath();
    void signOutWithTheServiceGone();
    void uploadWithProgressDeletesOurRecording();
    void refusedUploadSaysHowToRetryOnTheSameService();
    void endedSessionSaysWhatToRunNotWhereToClick();
    void mixesLikeARecording();
    void mixRefusesWhatItCannotUse_data();
    void mixRefusesWhatItCannotUse();
    void passkeysAddSignOutSignInRemove();
    void liveServerNeedsASession();
    void liveTranscriptOnATerminal();
    void liveTranscriptAsJson();
    void interimChangesAreCoalesced();
    void serviceTextCannotDriveTheTerminal_data();
    void serviceTextCannotDriveTheTerminal();
    void onDeviceLanguageMissing_data();
    void onDeviceLanguageMissing();
};

void TestCliCommands::usageErrors_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("message");
    // Rounded to no frames at all, the small ones used to mean "until stopped".
    for (const char* d : {"nan", "inf", "1e12", "0", "1e-300", "0.05", "-1", "86401", "abc", ""})
        QTest::addRow("duration %s", d)
            << QStringList{"record", "--duration", QString::fromLatin1(d)}
            << "--duration needs a number of seconds from 0.1 to 86400";
    QTest::newRow("duration missing") << QStringList{"record", "--duration"} << "--duration";
    QTest::newRow("save and discard")
        << QStringList{"record", "--save", "--discard"} << "exclude each other";
    QTest::newRow("target without video")
        << QStringList{"record", "--target", "display:main"} << "--target goes with --video";
    for (const char* id : {"screen:1", "window:", "window:-3", "window:0x1c", "display: 2", "app:"})
        QTest::addRow("target %s", id)
            << QStringList{"record", "--video", "--target", QString::fromLatin1(id)}
            << "capture target id";
    QTest::newRow("targets with an argument")
        << QStringList{"targets", "x"} << "Usage: sorvelandrix targets";
    QTest::newRow("live with an unknown mode")
        << QStringList{"record", "--live", "cloud"} << "--live needs server or on-device";
    QTest::newRow("language without live")
        << QStringList{"record", "--language", "de-DE"} << "--language goes with --live";
    QTest::newRow("language missing")
        << QStringList{"record", "--live", "server", "--language"} << "--language needs a value";
    QTest::newRow("grammar for the service")
        << QStringList{"record", "--live", "server", "--speech-grammar", "g.jsgf"}
        << "--speech-grammar goes with --live on-device";
    QTest::newRow("empty bot id") << QStringList{"stop-bot", ""} << "Usage: sorvelandrix stop-bot";
    QTest::newRow("join without link") << QStringList{"join"} << "Usage: sorvelandrix join";
    QTest::newRow("follow without id") << QStringList{"follow"} << "Usage: sorvelandrix follow";
    QTest::newRow("follow with two ids")
        << QStringList{"follow", "a", "b"} << "Usage: sorvelandrix follow";
    QTest::newRow("unknown command") << QStringList{"dance"} << "Unknown command dance";
    QTest::newRow("server without URL") << QStringList{"whoami", "--server"} << "--server";
    QTest::newRow("passkeys without action")
        << QStringList{"passkeys"} << "Usage: sorvelandrix passkeys list|add";
    QTest::newRow("passkey id not a number")
        << QStringList{"passkeys", "remove", "seven"} << "Usage: sorvelandrix passkeys remove ID";
    QTest::newRow("passkey add unknown option")
        << QStringList{"passkeys", "add", "--colour", "red"} << "Usage: sorvelandrix passkeys add";
    QTest::newRow("passkey with password")
        << QStringList{"login", "--passkey", "--password-stdin"} << "exclude each other";
}

void TestCliCommands::usageErrors()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);
    test::IsolatedEnvironment env;
    const Run r = runCli(args);
    QCOMPARE(r.status, cli::kExitUsage);
    QVERIFY2(r.err.contains(message), qPrintable(r.err));
}

void TestCliCommands::sessionCommands()
{
    test::IsolatedEnvironment env;
    test::LocalServiceFixture service;
    const Run signedOut = runCli({"whoami"});
    QCOMPARE(signedOut.status, cli::kExitFailure);
    QCOMPARE(signedOut.err.trimmed(),
             QStringLiteral("Not signed in. Sign in with: sorvelandrix login"));

    SecretStore secrets(SecretStore::Options::fileOnly());
    AuthManager auth(secrets);
    test::signIn(auth);

    const Run me = runCli({"whoami"});
    QCOMPARE(me.status, cli::kExitOk);
    QCOMPARE(me.out.trimmed(), QStringLiteral("Demo User <demo@sorvelandrix.local>"));

    // The service's titles are printed as they are, place markers and all.
    service->addRecording(LocalService::kDemoEmail, QStringLiteral("q.wav"), 60000,
                          QStringLiteral("Budget 100%1 %2"));
    const Run recordings = runCli({"recordings"});
    QCOMPARE(recordings.status, cli::kExitOk);
    QVERIFY2(recordings.out.contains(
                 QRegularExpression(R"(^\d{1,2} \w{3} +1:35  Welcome to Sorvelandrix +completed$)",
                                    QRegularExpression::MultilineOption)),
             qPrintable(recordings.out));
    QVERIFY2(recordings.out.contains(QRegularExpression(R"(  1:00  Budget 100%1 %2 +completed$)",
                                                        QRegularExpression::MultilineOption)),
             qPrintable(recordings.out));

    const Run joined = runCli({"--json", "join", "  https://meet.google.com/abc-defg-hij  "});
    QCOMPARE(joined.status, cli::kExitOk);
    const QJsonObject meeting = joined.last(QStringLiteral("meeting"));
    const QString id = meeting.value("id").toString();
    QVERIFY(!id.isEmpty());
    QCOMPARE(meeting.value("status").toString(), QStringLiteral("joining"));
    QCOMPARE(meeting.value("active").toBool(), true);
    const QJsonObject sent = QJsonDocument::fromJson(service->requestLog().last().body).object();
    QCOMPARE(sent.value("meeting_url").toString(),
             QStringLiteral("https://meet.google.com/abc-defg-hij"));
    QCOMPARE(sent.value("bot_name").toString(), QStringLiteral("Sorvelandrix Recorder"));

    // The active bot is marked in the list.
    const Run meetings = runCli({"meetings"});
    QCOMPARE(meetings.status, cli::kExitOk);
    QVERIFY2(meetings.out.contains(QStringLiteral("● ") + id), qPrintable(meetings.out));

    const Run refused = runCli({"join", "https://example.com/party"});
    QCOMPARE(refused.status, cli::kExitFailure);
    QCOMPARE(
        refused.err.trimmed(),
        QStringLiteral("This is not a Google Meet, Zoom, Microsoft Teams or Webex meeting link."));

    QCOMPARE(runCli({"stop-bot", id}).out.trimmed(), QStringLiteral("Bot stopped."));
    QCOMPARE(runCli({"logout"}).status, cli::kExitOk);
    QCOMPARE(service->requestCount("POST", "/api/auth/logout"), 1);
    QCOMPARE(runCli({"whoami"}).status, cli::kExitFailure);
}

void TestCliCommands::meetingsThatCannotBeFetchedFail()
{
    World w;
    w.service->script("GET", QStringLiteral("/api/meetings"),
                      ScriptedAnswer::reply(502, "<html>Bad gateway</html>"));
    const Run r = runCli({"meetings"});
    QCOMPARE(r.status, cli::kExitFailure);
    QVERIFY2(r.err.startsWith(QStringLiteral("Could not fetch the meetings: ")), qPrintable(r.err));
    QVERIFY(!r.out.contains(QStringLiteral("No meetings.")));
}

void TestCliCommands::botIdIsOneSegmentOfThePath()
{
    World w;
    const Run r = runCli({"stop-bot", "../auth/logout x"});
    QCOMPARE(r.status, cli::kExitFailure);
    QCOMPARE(w.service->requestCount("POST", "/api/auth/logout"), 0);
    const auto log = w.service->requestLog();
    QVERIFY(!log.isEmpty());
    QCOMPARE(log.last().target, QStringLiteral("/api/meetings/..%2Fauth%2Flogout%20x/stop"));
}

void TestCliCommands::signOutWithTheServiceGone()
{
    World w;
    w.service.stop();
    // An unreachable service does not end the stored session ...
    const Run offline = runCli({"whoami"});
    QCOMPARE(offline.status, cli::kExitFailure);
    QVERIFY2(offline.err.startsWith(QStringLiteral("Could not confirm the session")),
             qPrintable(offline.err));
    // ... and sign-out happens locally, without waiting out a network timeout.
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(runCli({"logout"}).status, cli::kExitOk);
    QVERIFY(timer.elapsed() < 15000);
    QCOMPARE(runCli({"whoami"}).status, cli::kExitFailure);
}

void TestCliCommands::uploadWithProgressDeletesOurRecording()
{
    World w;
    const QString path = w.recording(30); // ≈ 5.5 MB: several progress reports
    QVERIFY(!path.isEmpty());
    const Run r = runCli({"--json", "upload", path});
    QVERIFY2(r.status == cli::kExitOk, qPrintable(r.err));
    const QJsonObject uploaded = r.last(QStringLiteral("uploaded"));
    const QString id = uploaded.value(QStringLiteral("id")).toString();
    QVERIFY(!id.isEmpty());
    QCOMPARE(uploaded.value(QStringLiteral("url")).toString(),
             w.service.origin() + QStringLiteral("/recording/") + id);
    double previous = -1;
    int progress = 0;
    for (const QJsonObject& e : r.events()) {
        if (e.value(QStringLiteral("event")).toString() != QStringLiteral("progress"))
            continue;
        ++progress;
        const double f = e.value(QStringLiteral("fraction")).toDouble();
        QVERIFY(f >= previous && f <= 1.0);
        previous = f;
    }
    QVERIFY(progress >= 2);
    QVERIFY(!QFile::exists(path));
}

void TestCliCommands::refusedUploadSaysHowToRetryOnTheSameService()
{
    World w;
    const QString path = w.recording(1);
    w.service->script("POST", QStringLiteral("/api/upload"),
                      ScriptedAnswer::json(500, {{"detail", "Storage is offline"}}));
    const Run r = runCli({"--server", w.service.origin(), "upload", path});
    QCOMPARE(r.status, cli::kExitFailure);
    QVERIFY2(r.err.contains(QStringLiteral("Upload failed (HTTP 500): Storage is offline")),
             qPrintable(r.err));
    QVERIFY2(r.err.contains(QStringLiteral("Retry with: sorvelandrix --server %1 upload %2")
                                .arg(w.service.origin(), path)),
             qPrintable(r.err));
    QVERIFY(QFile::exists(path));

    const Run missing = runCli({"upload", path + QStringLiteral(".nope")});
    QCOMPARE(missing.status, cli::kExitFailure);
    QVERIFY(missing.err.contains(QStringLiteral("no such file")));

    // The failed one is listed with its reason beside one kept without a
    // reason; --all sends both, and nothing is left to list.
    const QString kept = QFileInfo(path).dir().filePath(QStringLiteral("sorvelandrix_41.wav"));
    QVERIFY(QFile::copy(path, kept));
    const Run listed = runCli({"--json", "pending"});
    QCOMPARE(listed.events().size(), 2);
    QCOMPARE(listed.events()[0].value("path").toString(), kept);
    QCOMPARE(listed.events()[1].value("reason").toString(),
             QStringLiteral("Upload failed (HTTP 500): Storage is offline"));
    QCOMPARE(listed.events()[1].value("seconds").toDouble(), 1.0);
    QCOMPARE(listed.events()[1].value("startedAt").toString(),
             QStringLiteral("1970-01-01T00:00:42Z"));
    const Run all = runCli({"--json", "upload", "--all"});
    QVERIFY2(all.status == cli::kExitOk, qPrintable(all.err));
    QCOMPARE(w.service->requestCount("POST", QStringLiteral("/api/upload")), 3);
    QCOMPARE(runCli({"pending"}).out.trimmed(),
             QStringLiteral("No recordings waiting for upload."));
}

void TestCliCommands::endedSessionSaysWhatToRunNotWhereToClick()
{
    World w;
    const QString path = w.recording(1);
    w.service->expireAccessTokens();
    w.service->script("POST", QStringLiteral("/api/auth/refresh"),
                      ScriptedAnswer::json(401, {{"detail", "revoked"}}));
    const Run r = runCli({"upload", path});
    QCOMPARE(r.status, cli::kExitFailure);
    QVERIFY2(r.err.contains(QStringLiteral("Sign in with: sorvelandrix login")), qPrintable(r.err));
    QVERIFY(!r.err.contains(QStringLiteral("below")));
    QVERIFY(r.err.contains(QStringLiteral("Retry with: sorvelandrix upload ") + path));
    QVERIFY(QFile::exists(path));
}

void TestCliCommands::mixesLikeARecording()
{
    QTemporaryDir dir;
    // Two and a bit buffers of microphone, and a stereo system file that is
    // a little longer: its channels are averaged and the output runs to the
    // end of the longer input.
    const size_t micFrames = 4096 * 2 + 1000;
    const size_t sysFrames = 4096 * 3 + 7;
    const auto mic = tone(micFrames, 1000.0f, 0.05f);
    auto sysStereo = tone(sysFrames, 440.0f, 0.3f, 2);
    for (size_t i = 0; i < sysFrames; ++i)
        sysStereo[i * 2 + 1] = 0.0f;
    QVERIFY(writeWav(dir.filePath(QStringLiteral("mic.wav")), 48000, 1, mic));
    QVERIFY(writeWav(dir.filePath(QStringLiteral("sys.wav")), 48000, 2, sysStereo));

    const QString out = dir.filePath(QStringLiteral("out.wav"));
    const Run r = runCli({"mix", dir.filePath(QStringLiteral("mic.wav")),
                          dir.filePath(QStringLiteral("sys.wav")), out});
    QVERIFY2(r.status == 0, qPrintable(r.err));
    QVERIFY(r.out.contains(out));

    const test::WavContents mixed = test::readWavFile(out);
    QCOMPARE(mixed.samples.size(), sysFrames);

    // The same mix computed from what the files hold.
    auto micIn = test::readWavFile(dir.filePath(QStringLiteral("mic.wav"))).samples;
    const auto sysIn = test::readWavFile(dir.filePath(QStringLiteral("sys.wav"))).samples;
    std::vector<float> sysMono(sysFrames);
    for (size_t i = 0; i < sysFrames; ++i)
        sysMono[i] = (sysIn[2 * i] + sysIn[2 * i + 1]) * 0.5f;
    micIn.resize(sysFrames, 0.0f);
    AGCState state;
    std::vector<float> expected;
    for (size_t off = 0; off < sysFrames; off += 4096) {
        const size_t n = std::min<size_t>(4096, sysFrames - off);
        const auto r2 =
            mixWithGainControl(std::span<const float>(micIn).subspan(off, n),
                               std::span<const float>(sysMono).subspan(off, n), true, state);
        state = r2.state;
        expected.insert(expected.end(), r2.samples.begin(), r2.samples.end());
    }
    for (size_t i = 0; i < expected.size(); ++i)
        QVERIFY2(std::fabs(mixed.samples[i] - expected[i]) < 1e-6f, qPrintable(QString::number(i)));
}

void TestCliCommands::mixRefusesWhatItCannotUse_data()
{
    QTest::addColumn<QString>("micName");
    QTest::addColumn<int>("micRate");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("message");
    QTest::newRow("44.1 kHz") << "mic.wav" << 44100 << "out.wav"
                              << "44100 Hz";
    QTest::newRow("missing file") << "absent.wav" << 0 << "out.wav"
                                  << "absent.wav: no such file";
    QTest::newRow("not audio") << "junk.wav" << -1 << "out.wav"
                               << "not a readable audio file";
    QTest::newRow("output is an input by another name") << "mic.wav" << 48000 << "link.wav"
                                                        << "must not be one of the inputs";
}

void TestCliCommands::mixRefusesWhatItCannotUse()
{
    QFETCH(QString, micName);
    QFETCH(int, micRate);
    QFETCH(QString, output);
    QFETCH(QString, message);
    QTemporaryDir dir;
    const QString micPath = dir.filePath(micName);
    if (micRate > 0)
        QVERIFY(writeWav(micPath, micRate, 1, std::vector<float>(4410, 0.1f)));
    if (micRate < 0) {
        QFile junk(micPath);
        QVERIFY(junk.open(QIODevice::WriteOnly));
        junk.write("this is not a wav file");
    }
    QVERIFY(writeWav(dir.filePath(QStringLiteral("sys.wav")), 48000, 1,
                     std::vector<float>(4800, 0.1f)));
    const QString out = dir.filePath(output);
    if (output == QLatin1String("link.wav"))
        QVERIFY(QFile::link(micPath, out));
    const QByteArray micBefore = [&] {
        QFile f(micPath);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }();
    const Run r = runCli({"mix", micPath, dir.filePath(QStringLiteral("sys.wav")), out});
    QCOMPARE(r.status, cli::kExitFailure);
    QVERIFY2(r.err.contains(message), qPrintable(r.err));
    if (output == QLatin1String("link.wav")) {
        QFile f(micPath);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), micBefore); // the input is untouched
    } else {
        QVERIFY(!QFile::exists(out));
    }
}

// With the development authenticator kept in a file, as a user without a
// security key runs them: every command a new session and a new authenticator.
void TestCliCommands::passkeysAddSignOutSignInRemove()
{
    World w;
    const QString keyFile = w.env.path(QStringLiteral("devkey/key.json"));
    qputenv(PasskeyManager::kSoftwareAuthenticatorVariable, QFile::encodeName(keyFile));
    const auto unset =
        qScopeGuard([] { qunsetenv(PasskeyManager::kSoftwareAuthenticatorVariable); });

    const Run none = runCli({"passkeys", "list"});
    QCOMPARE(none.status, cli::kExitOk);
    QCOMPARE(none.out.trimmed(), QStringLiteral("No passkeys yet. Add your first passkey with: "
                                                "sorvelandrix passkeys add"));
    QVERIFY(!QFileInfo::exists(keyFile)); // listing leaves the key alone

    const Run added = runCli({"passkeys", "add", "--label", "Desk key"});
    QVERIFY2(added.status == cli::kExitOk, qPrintable(added.err));
    QVERIFY2(added.out.startsWith(QStringLiteral("Passkey added.\n")), qPrintable(added.out));
    QVERIFY(added.out.contains(QStringLiteral("Desk key")));
    QVERIFY(added.out.contains(QStringLiteral("Never used")));
    QVERIFY2(added.err.contains(QStringLiteral("Touch your security key…")), qPrintable(added.err));

    const Run listed = runCli({"--json", "passkeys", "list"});
    QCOMPARE(listed.status, cli::kExitOk);
    const QJsonObject passkey = listed.last(QStringLiteral("passkey"));
    QCOMPARE(passkey.value("label").toString(), QStringLiteral("Desk key"));
    QVERIFY(passkey.value("lastUsedAt").isNull());
    const QString id = QString::number(passkey.value("id").toInteger());

    QCOMPARE(runCli({"logout"}).status, cli::kExitOk);
    QCOMPARE(runCli({"passkeys", "list"}).err.trimmed(),
             QStringLiteral("Not signed in. Sign in with: sorvelandrix login"));

    // Without an e-mail the key names the account.
    const Run signedIn = runCli({"login", "--passkey"});
    QVERIFY2(signedIn.status == cli::kExitOk, qPrintable(signedIn.err));
    QCOMPARE(signedIn.out.trimmed(),
             QStringLiteral("Signed in as Demo User <demo@sorvelandrix.local>"));

    const Run removed = runCli({"passkeys", "remove", id});
    QCOMPARE(removed.status, cli::kExitOk);
    QCOMPARE(removed.out.trimmed(), QStringLiteral("Passkey %1 removed.").arg(id));
    QVERIFY(runCli({"passkeys", "list"}).out.startsWith(QStringLiteral("No passkeys yet.")));
}

void TestCliCommands::liveServerNeedsASession()
{
    test::IsolatedEnvironment env;
    test::LocalServiceFixture service;
    const Run r = runCli({"record", "--live", "server", "--duration", "1"});
    QCOMPARE(r.status, cli::kExitFailure);
    QCOMPARE(r.err.trimmed(), QStringLiteral("Not signed in. Sign in with: sorvelandrix login"));
    QVERIFY(r.out.isEmpty()); // nothing was recorded
}

namespace {

struct ReporterRun {
    QString out;
    cli::CommandContext ctx;
    ServerTranscriptManager transcript;
    std::unique_ptr<cli::LiveTranscriptReporter> reporter;
    int redraws = 0;

    ReporterRun(bool terminal, bool json, DelayedCall delays = {})
    {
        ctx.terminal = terminal;
        ctx.json = json;
        ctx.delays = std::move(delays);
        ctx.out = [this](const QByteArray& b) { out += QString::fromUtf8(b); };
        ctx.err = [](const QByteArray&) {};
        reporter = std::make_unique<cli::LiveTranscriptReporter>(ctx, transcript);
        reporter->redraw = [this] { ++redraws; };
    }
    void feed(const std::vector<LiveTranscriptEvent>& events)
    {
        for (const auto& e : events)
            transcript.handle(e);
    }
};

} // namespace

void TestCliCommands::liveTranscriptOnATerminal()
{
    using namespace LiveEvent;
    ReporterRun r(true, false);
    r.feed({Connected{"t"}, Partial{"Hel", "guest_1"}, Partial{"Hello", "guest_1"}});
    // Still being spoken: shown in place, not printed.
    QVERIFY(r.out.isEmpty());
    QCOMPARE(r.reporter->openLine(), QStringLiteral("Guest 1: Hello"));
    QCOMPARE(r.redraws, 2);
    r.feed({Segment{"guest_1", "Hello there.", 0, 0, true}});
    QCOMPARE(r.out, QStringLiteral("\r\033[KGuest 1: Hello there.\n"));
    QVERIFY(r.reporter->openLine().isEmpty());
    // Cut short by another speaker: printed as it stood.
    r.feed({Partial{"So", "you"}, Segment{"1", "Right.", 0, 0, true}, Partial{"and", "you"}});
    QCOMPARE(
        r.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts),
        (QStringList{"\r\033[KGuest 1: Hello there.", "\r\033[KYou: So", "\r\033[K1: Right."}));
    QCOMPARE(r.reporter->openLine(), QStringLiteral("You: Soand"));
    // The error shows; what was open is printed at the end.
    r.feed({Error{"Authentication failed"}, Disconnected{}});
    r.reporter->finish();
    QVERIFY(r.out.endsWith(
        QStringLiteral("\r\033[KLive transcript: Authentication failed\n\r\033[KYou: Soand\n")));

    QCOMPARE(cli::LiveTranscriptReporter::fitToWidth(QStringLiteral("abcdef"), 6),
             QStringLiteral("abcdef"));
    QCOMPARE(cli::LiveTranscriptReporter::fitToWidth(QStringLiteral("abcdefg"), 4),
             QStringLiteral("…efg"));
}

void TestCliCommands::liveTranscriptAsJson()
{
    using namespace LiveEvent;
    ReporterRun r(false, true);
    r.transcript.stop(); // idle → idle: no event
    r.feed({Status{"connecting"}, Connected{"t"}, Partial{"Hel", "0"},
            Segment{"0", "Hello.", 0, 0, true}, SpeakerNames{{{"0", "Ada"}}}});
    const auto segment = [](const char* name, const char* text) {
        return QJsonObject{{"event", "segment"},
                           {"id", 0},
                           {"speaker", "0"},
                           {"displayName", name},
                           {"text", text}};
    };
    QCOMPARE(test::jsonLines(r.out),
             (QList<QJsonObject>{
                 {{"event", "transcriptStatus"}, {"status", "connecting"}, {"message", ""}},
                 {{"event", "transcriptStatus"}, {"status", "active"}, {"message", ""}},
                 segment("0", "Hel"),
                 segment("0", "Hello."),
                 segment("Ada", "Hello.")}));
    r.feed({Error{"Quota exceeded"}});
    QCOMPARE(test::jsonLines(r.out).last(), (QJsonObject{{"event", "transcriptStatus"},
                                                         {"status", "error"},
                                                         {"message", "Quota exceeded"}}));
}

void TestCliCommands::interimChangesAreCoalesced()
{
    using namespace LiveEvent;
    using namespace std::chrono_literals;
    test::ManualDelays clock;
    ReporterRun r(false, true, clock.delayedCall());
    const auto texts = [&r] {
        QStringList list;
        for (const QJsonObject& e : test::jsonLines(r.out, QStringLiteral("segment")))
            list << e.value("text").toString();
        return list;
    };
    r.feed({Connected{"t"}});
    // A thousand revisions of one interim text: the first at once, then the
    // latest once per interval, whatever the rate.
    for (int i = 1; i <= 1000; ++i)
        r.feed({Partial{QStringLiteral("a").repeated(i), "0"}});
    QCOMPARE(texts(), QStringList{"a"});
    clock.advance(250ms);
    QCOMPARE(texts().size(), 2);
    QCOMPARE(texts().last().size(), 1000);
    clock.advance(250ms);
    QCOMPARE(texts().size(), 2);
    // A final goes out at once, in place of the interim change held back.
    r.feed({Partial{"b", "1"}, Partial{"bc", "1"}, Segment{"1", "bcd.", 0, 0, true}});
    QCOMPARE(texts().mid(2), (QStringList{"b", "bcd."}));
}

void TestCliCommands::serviceTextCannotDriveTheTerminal_data()
{
    QTest::addColumn<bool>("json");
    QTest::newRow("text") << false;
    QTest::newRow("json") << true;
}

void TestCliCommands::serviceTextCannotDriveTheTerminal()
{
    using namespace LiveEvent;
    QFETCH(bool, json);
    ReporterRun r(!json, json);
    // The clipboard, the window title, a cleared screen, a C1 escape.
    r.feed({Connected{"t"}, SpeakerNames{{{"0", "Eve\x1b]0;owned\x07"}}},
            Segment{"0", "hi\x1b]52;c;ZXZpbA==\x07\x1b[2J\u009b1m\nthere", 0, 0, true},
            Error{"Quota\x1b[31m exceeded"}});
    r.reporter->finish();
    if (json) {
        QVERIFY2(!r.out.contains(QChar(0x1b)), qPrintable(r.out));
        QVERIFY(r.out.contains(QStringLiteral("Eve\\u001b]0;owned\\u0007")));
        return;
    }
    // Our own line clearing, and nothing else.
    QString rest = r.out;
    rest.remove(QStringLiteral("\r\033[K"));
    for (const QChar c : std::as_const(rest))
        QVERIFY2(c == QLatin1Char('\n') ||
                     (c >= QChar(0x20) && c != QChar(0x7f) && (c < QChar(0x80) || c > QChar(0x9f))),
                 qPrintable(QStringLiteral("U+%1 in %2").arg(c.unicode(), 4, 16).arg(rest)));
    QCOMPARE(rest.split(QLatin1Char('\n'), Qt::SkipEmptyParts),
             (QStringList{QStringLiteral("Eve�]0;owned�: hi�]52;c;ZXZpbA==��[2J�1m there"),
                          QStringLiteral("Live transcript: Quota�[31m exceeded")}));
}

void TestCliCommands::onDeviceLanguageMissing_data()
{
    serviceTextCannotDriveTheTerminal_data();
}

// The preview of a language with no model says so by name, in both forms,
// and the recording goes on without it.
void TestCliCommands::onDeviceLanguageMissing()
{
    QFETCH(bool, json);
    test::IsolatedEnvironment env;
    QString out;
    cli::CommandContext ctx;
    ctx.json = json;
    ctx.out = [&out](const QByteArray& b) { out += QString::fromUtf8(b); };
    ctx.err = [](const QByteArray&) {};
    // No recogniser for any language, as on a machine without the models.
    LocalTranscriptManager preview([](const QString&) { return nullptr; });
    cli::LiveTranscriptReporter reporter(ctx, preview);
    preview.overrideLocale(QStringLiteral("zu-ZA"));
    preview.start();
    QTRY_VERIFY(preview.status().isError());
    const QString text = LocalTranscriptManager::unavailableText(QStringLiteral("zu-ZA"));
    QVERIFY(text.contains(QStringLiteral("isiZulu")));
    const QStringList lines = out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    if (!json) {
        QCOMPARE(lines, QStringList{QStringLiteral("Live transcript: ") + text});
        return;
    }
    QCOMPARE(QJsonDocument::fromJson(lines.last().toUtf8()).object(),
             (QJsonObject{{"event", "transcriptStatus"}, {"status", "error"}, {"message", text}}));
    for (const QString& line : lines.first(lines.size() - 1))
        QVERIFY2(!line.contains(QStringLiteral("\"error\"")), qPrintable(line));
}

QTEST_GUILESS_MAIN(TestCliCommands)
#include "tst_cli_commands.moc"
