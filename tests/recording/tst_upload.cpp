// The upload of a finished recording, against the local service over
// loopback: the body byte for byte, the answers that count as success or
// refusal, the one refresh-and-retry after a 401, a session that survives a
// network blip, and the rule that a recording is deleted only once the
// service has it.

#include "audio/wavwriter.h"
#include "core/log.h"
#include "core/paths.h"
#include "core/secretstore.h"
#include "recording/audiorecorder.h"
#include "recording/pendingrecordings.h"
#include "recording/recordinguploader.h"
#include "recording/uploadbody.h"
#include "recording/uploadretryscheduler.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"

#include <QDateTime>

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>

using namespace sorv;
using local::LocalService;
using local::ScriptedAnswer;
using Kind = RecordingState::Kind;

namespace {

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

struct World : test::SignedIn {
    World()
    {
        recorder.setAuthManager(&auth);
        service->clearRequestLog();
    }

    // A one-second recording in the recordings directory, as a recording
    // session leaves it.
    QString makeRecording(const QString& name = QStringLiteral("sorvelandrix_1763850000.wav"))
    {
        QString path = recordingsDirectory() + QLatin1Char('/') + name;
        WavWriter w;
        if (!w.open(path))
            qFatal("cannot write the test recording");
        std::vector<float> samples(48000);
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = float(i % 480) / 480.0f - 0.5f;
        w.write(samples);
        w.close();
        return path;
    }

    // Runs one upload to its end (uploaded or error).
    RecordingState upload(const QString& path)
    {
        recorder.uploadRecording(path);
        if (!QTest::qWaitFor(
                [&] {
                    const Kind k = recorder.state().kind();
                    return k == Kind::Uploaded || k == Kind::Error;
                },
                30000))
            qFatal("the upload did not finish");
        return recorder.state();
    }

    QList<local::LoggedRequest> posts(const QStringList& paths) const
    {
        QList<local::LoggedRequest> out;
        for (const auto& r : const_cast<World*>(this)->service->requestLog()) {
            if (r.method == "POST" && paths.contains(r.path))
                out << r;
        }
        return out;
    }

    AudioRecorder recorder;
};

const QString kUpload = QStringLiteral("/api/upload");
const QString kRefresh = QStringLiteral("/api/auth/refresh");

} // namespace

class TestUpload : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        setLogSink([](const QString&) {});
    }
    void cleanup() { setLogSink({}); }

    void bodyByteForByte_data();
    void bodyByteForByte();
    void staleBodiesOfEarlierVersionsAreSwept();
    void failureMessages_data();
    void failureMessages();

    void successDeletesTheRecordingAndListsIt();
    void progressFollowsTheBodyOut();
    void answersOtherThan200AreRefusals_data();
    void answersOtherThan200AreRefusals();
    void unauthorisedOnceThenRefreshAndRetry();
    void unauthorisedAndRefreshRefusedEndsTheSession();
    void droppedConnectionKeepsTheRecordingAndIsNotResent();
    void networkBlipIsNotASignOut_data();
    void networkBlipIsNotASignOut();
    void cancelKeepsTheRecording();
    void fileOutsideTheRecordingsDirectoryIsNeverDeleted();
    void silentServiceTimesOutInWords();
    void fileInUseIsNotSentTwice();
    void fileThatChangesWhileSentIsKept();
    void networkFailuresAreRetriedOnTheirSchedule();
    void refusalsAndAnEndedSessionStopTheRetries();
};

void TestUpload::bodyByteForByte_data()
{
    QTest::addColumn<QString>("filename");
    QTest::addColumn<int>("size");
    QTest::addColumn<QString>("contentType");
    QTest::newRow("empty recording") << "sorvelandrix_1.wav" << 0 << "audio/wav";
    QTest::newRow("upper-case MP4") << "screen.MP4" << 1000 << "video/mp4";
    QTest::newRow("m4a") << "voice.m4a" << 10 << "audio/m4a";
    QTest::newRow("aac is not known") << "voice.aac" << 10 << "application/octet-stream";
    QTest::newRow("several megabytes") << "long.wav" << (3 * 1048576 + 17) << "audio/wav";
}

void TestUpload::bodyByteForByte()
{
    // The body is produced while it is sent; it must be exactly the one
    // multipart part a staged body file would hold, read in pieces of any
    // size, and it reads once.
    QFETCH(QString, filename);
    QFETCH(int, size);
    QFETCH(QString, contentType);
    test::IsolatedEnvironment env;
    QByteArray content(size, Qt::Uninitialized);
    for (char& c : content)
        c = char(QRandomGenerator::global()->bounded(256));
    const QString source = env.path(filename);
    QVERIFY(writeFile(source, content));

    QCOMPARE(uploadContentType(source), contentType);
    const QByteArray expected = "--sorvelandrix-0123\r\n"
                                "Content-Disposition: form-data; name=\"file\"; filename=\"" +
                                filename.toUtf8() + "\"\r\nContent-Type: " + contentType.toUtf8() +
                                "\r\n\r\n" + content + "\r\n--sorvelandrix-0123--\r\n";
    MultipartBodyDevice body(source, QStringLiteral("sorvelandrix-0123"), QStringLiteral("file"),
                             filename, contentType);
    QVERIFY2(body.open(), qPrintable(body.errorString()));
    QVERIFY(body.isSequential());
    QCOMPARE(body.totalSize(), qint64(expected.size()));
    QByteArray read;
    for (qint64 piece = 1; !body.atEnd(); piece = piece * 3 + 1)
        read += body.read(piece % 70000 + 1);
    QCOMPARE(read, expected);
    QVERIFY(!body.reset());
    QVERIFY(body.read(10).isEmpty());
}

void TestUpload::staleBodiesOfEarlierVersionsAreSwept()
{
    // Earlier versions staged a copy of the recording beside it; one left by
    // an interrupted upload goes at the next start, a fresh one stays.
    test::IsolatedEnvironment env;
    const QString old = recordingsDirectory() + QStringLiteral("/sorvelandrix-upload-old.body");
    const QString fresh = recordingsDirectory() + QStringLiteral("/sorvelandrix-upload-new.body");
    QVERIFY(writeFile(old, "old") && writeFile(fresh, "new"));
    QFile oldFile(old);
    QVERIFY(oldFile.open(QIODevice::ReadWrite));
    QVERIFY(oldFile.setFileTime(QDateTime::currentDateTime().addDays(-1),
                                QFileDevice::FileModificationTime));
    oldFile.close();
    AudioRecorder recorder;
    QTRY_VERIFY(!QFile::exists(old));
    QVERIFY(QFile::exists(fresh));
}

void TestUpload::failureMessages_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    QTest::newRow("401 without detail")
        << QByteArray("{}") << 401
        << "Upload failed (HTTP 401). Your sign-in expired — use the profile menu to sign in "
           "again, then Retry upload.";
    QTest::newRow("401 with detail") << QByteArray(R"({"detail":"Token revoked"})") << 401
                                     << "Upload failed (HTTP 401): Token revoked";
    QTest::newRow("empty detail") << QByteArray(R"({"detail":""})") << 500
                                  << "Upload failed (HTTP 500)";
    QTest::newRow("not JSON") << QByteArray("<html>Bad gateway</html>") << 502
                              << "Upload failed (HTTP 502)";
}

void TestUpload::failureMessages()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, message);
    QCOMPARE(uploadFailureMessage(body, status), message);
}

void TestUpload::successDeletesTheRecordingAndListsIt()
{
    World w;
    const QString path = w.makeRecording();
    const QByteArray wav = readAll(path);

    const RecordingState end = w.upload(path);
    QCOMPARE(end.kind(), Kind::Uploaded);
    QCOMPARE(end.name(), QStringLiteral("sorvelandrix_1763850000.wav"));
    QVERIFY(end.id().has_value());
    QVERIFY(!QFile::exists(path));
    QVERIFY(w.recorder.failedUploadPath().isEmpty());

    // It went out as one multipart request with our client's headers.
    const auto uploads = w.posts({kUpload});
    QCOMPARE(uploads.size(), 1);
    const auto& r = uploads.first();
    QCOMPARE(r.header("x-sorvelandrix-client"), QByteArray("linux-app"));
    QVERIFY(r.header("User-Agent").startsWith("SorvelandrixRecorder/"));
    QVERIFY(r.header("User-Agent").endsWith(" (Linux)"));
    QVERIFY(r.header("Authorization").startsWith("Bearer "));
    QVERIFY(r.header("Content-Type").startsWith("multipart/form-data; boundary=sorvelandrix-"));
    QCOMPARE(r.header("x-sorvelandrix-language"), QByteArray("af"));
    QCOMPARE(r.streamedBodySize, r.header("Content-Length").toLongLong());
    QVERIFY(r.streamedBodySize > wav.size());

    // The service stored exactly the recording's bytes.
    const QStringList stored =
        QDir(w.service.dataDirectory() + QStringLiteral("/uploads/") + *end.id())
            .entryList(QDir::Files);
    QCOMPARE(stored, QStringList{end.name()});
    QCOMPARE(readAll(w.service.dataDirectory() + QStringLiteral("/uploads/") + *end.id() +
                     QLatin1Char('/') + end.name()),
             wav);
}

// The bar moves as the body leaves, not 0 then 100 % at once and a long wait
// (what QNetworkReply::uploadProgress reports for a streamed body).
void TestUpload::progressFollowsTheBodyOut()
{
    World w;
    const QString path = recordingsDirectory() + QStringLiteral("/sorvelandrix_1763850001.wav");
    QByteArray bytes(qsizetype(8) * 1024 * 1024, Qt::Uninitialized);
    QRandomGenerator(7).fillRange(reinterpret_cast<quint32*>(bytes.data()),
                                  bytes.size() / int(sizeof(quint32)));
    QVERIFY(writeFile(path, bytes));
    QList<double> seen;
    connect(&w.recorder, &AudioRecorder::stateChanged, this, [&] {
        if (w.recorder.state().kind() == Kind::Uploading)
            seen << w.recorder.state().progress();
    });

    QCOMPARE(w.upload(path).kind(), Kind::Uploaded);
    QVERIFY(std::is_sorted(seen.cbegin(), seen.cend()));
    const auto between =
        std::count_if(seen.cbegin(), seen.cend(), [](double p) { return p > 0.0 && p < 1.0; });
    QVERIFY2(between >= 50, qPrintable(QStringLiteral("%1 steps").arg(between)));
    QVERIFY(seen.last() > 0.99);
}

void TestUpload::answersOtherThan200AreRefusals_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("message");
    // Without the new recording's id nothing says the service kept it.
    for (const char* body : {"{}", R"({"status":"processing"})", R"({"id":""})", R"({"id":7})"})
        QTest::addRow("200 with %s", body)
            << 200 << QByteArray(body)
            << "Upload failed: the server's answer was not understood (HTTP 200)";
    // A hotel or train network answers with its own sign-in page.
    QTest::newRow("200 that is not the service's JSON")
        << 200 << QByteArray("<html><body>Accept our terms</body></html>")
        << "Upload failed: the server's answer was not understood (HTTP 200)";
    QTest::newRow("201 is not success")
        << 201 << QByteArray(R"({"id":"x"})") << "Upload failed (HTTP 201)";
    QTest::newRow("500 with detail")
        << 500 << QByteArray(R"({"detail":"Disk full"})") << "Upload failed (HTTP 500): Disk full";
}

void TestUpload::answersOtherThan200AreRefusals()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, message);
    World w;
    const QString path = w.makeRecording();
    w.service->script("POST", kUpload, ScriptedAnswer::reply(status, body));
    QCOMPARE(w.upload(path), RecordingState::error(message));
    QVERIFY(QFile::exists(path));
    QCOMPARE(w.recorder.failedUploadPath(), path);
    QVERIFY(w.recorder.canRetryUpload());
}

void TestUpload::unauthorisedOnceThenRefreshAndRetry()
{
    World w;
    const QString path = w.makeRecording();
    w.service->script("POST", kUpload, ScriptedAnswer::reply(401, R"({"detail":"expired"})"));
    const RecordingState end = w.upload(path);
    QCOMPARE(end.kind(), Kind::Uploaded);

    // The session is refreshed before the upload starts; after the 401 exactly
    // one more refresh, then the same body once more.
    const auto log = w.posts({kUpload, kRefresh});
    QStringList order;
    for (const auto& r : log)
        order << r.path;
    QCOMPARE(order, (QStringList{kRefresh, kUpload, kRefresh, kUpload}));
    QCOMPARE(log[1].streamedBodySha256, log[3].streamedBodySha256);
    QCOMPARE(log[1].streamedBodySize, log[3].streamedBodySize);
    QVERIFY(log[1].header("Authorization") != log[3].header("Authorization"));
    // Only the first attempt names our client in the User-Agent.
    QVERIFY(log[1].header("User-Agent").startsWith("SorvelandrixRecorder/"));
    QVERIFY(!log[3].header("User-Agent").startsWith("SorvelandrixRecorder/"));
    QVERIFY(!QFile::exists(path));
}

void TestUpload::unauthorisedAndRefreshRefusedEndsTheSession()
{
    World w;
    const QString path = w.makeRecording();
    w.service->script("POST", kUpload, ScriptedAnswer::reply(401));
    // The refresh before the upload goes through; the one after the 401 is refused.
    w.service->script("POST", kRefresh, ScriptedAnswer::delayed(std::chrono::milliseconds(0)));
    w.service->script("POST", kRefresh, ScriptedAnswer::reply(401, R"({"detail":"revoked"})"));
    const RecordingState end = w.upload(path);
    QCOMPARE(end, RecordingState::error(
                      QStringLiteral("Sign-in required — sign in below, then tap Retry upload.")));
    QVERIFY(!w.auth.isLoggedIn());
    QCOMPARE(w.auth.sessionExpiredBanner(),
             QStringLiteral("Sign in again to upload your recording."));
    QVERIFY(QFile::exists(path));
    QCOMPARE(w.recorder.failedUploadPath(), path);
    QVERIFY(w.recorder.signInRequired());

    // Retry while signed out is refused without touching the file.
    w.recorder.retryUpload();
    QCOMPARE(w.recorder.state(),
             RecordingState::error(QStringLiteral("Sign in first, then tap Retry upload.")));
    QVERIFY(QFile::exists(path));
}

void TestUpload::droppedConnectionKeepsTheRecordingAndIsNotResent()
{
    World w;
    const QString path = w.makeRecording();
    // The service takes the whole body and closes the connection without an
    // answer: it may have the recording already, so it is not sent again
    // behind the user's back.
    w.service->script("POST", kUpload, ScriptedAnswer::dropped());
    const RecordingState end = w.upload(path);
    QCOMPARE(end, RecordingState::error(
                      QStringLiteral("Upload failed: the connection to the service was lost")));
    QCOMPARE(w.posts({kUpload}).size(), 1);
    QVERIFY(QFile::exists(path));
    QCOMPARE(w.recorder.failedUploadPath(), path);
}

void TestUpload::networkBlipIsNotASignOut_data()
{
    QTest::addColumn<bool>("dropped");
    QTest::addColumn<int>("status");
    QTest::newRow("no answer") << true << 0;
    QTest::newRow("service error") << false << 503;
}

void TestUpload::networkBlipIsNotASignOut()
{
    // The check before the upload meets a network or a service having a bad
    // moment: the session stays, the upload fails with Retry offered.
    QFETCH(bool, dropped);
    QFETCH(int, status);
    World w;
    const QString path = w.makeRecording();
    const QString me = QStringLiteral("/api/auth/me");
    for (int i = 0; i < 2; ++i)
        w.service->script("GET", me,
                          dropped ? ScriptedAnswer::dropped() : ScriptedAnswer::reply(status));
    const RecordingState end = w.upload(path);
    QCOMPARE(end.kind(), Kind::Error);
    QVERIFY2(end.message().startsWith(QStringLiteral("Upload failed: ")),
             qPrintable(end.message()));
    QVERIFY(w.auth.isLoggedIn());
    QVERIFY(w.auth.sessionExpiredBanner().isEmpty());
    QVERIFY(!w.recorder.signInRequired());
    QCOMPARE(w.recorder.failedUploadPath(), path);
    QCOMPARE(w.posts({kUpload}).size(), 0);
    // Once the network is back, Retry goes through.
    w.service->clearScripts();
    w.recorder.retryUpload();
    QTRY_COMPARE_WITH_TIMEOUT(w.recorder.state().kind(), Kind::Uploaded, 20000);
}

void TestUpload::cancelKeepsTheRecording()
{
    World w;
    const QString path = w.makeRecording();
    w.service->script("POST", kUpload, ScriptedAnswer::delayed(std::chrono::seconds(30)));
    w.recorder.uploadRecording(path);
    QTRY_VERIFY(w.service->requestCount("POST", kUpload) == 1);
    w.recorder.cancelUpload();
    QCOMPARE(w.recorder.state(), RecordingState::error(QStringLiteral("Upload cancelled")));
    QVERIFY(QFile::exists(path));
    QCOMPARE(w.recorder.failedUploadPath(), path);
}

void TestUpload::fileOutsideTheRecordingsDirectoryIsNeverDeleted()
{
    World w;
    const QString inside = w.makeRecording();
    const QString outside = w.env.path(QStringLiteral("interview.wav"));
    QVERIFY(QFile::rename(inside, outside));
    QCOMPARE(w.upload(outside).kind(), Kind::Uploaded);
    QVERIFY(QFile::exists(outside));
}

void TestUpload::silentServiceTimesOutInWords()
{
    // The service takes the body and says nothing: the transfer gives up
    // after its timeout (ten minutes in use), and says so.
    World w;
    const QString path = w.makeRecording();
    w.service->script("POST", kUpload, ScriptedAnswer::delayed(std::chrono::seconds(30)));
    RecordingUploader uploader;
    uploader.setAuthManager(&w.auth);
    uploader.setTransferTimeout(std::chrono::milliseconds(500));
    QSignalSpy finished(&uploader, &RecordingUploader::finished);
    uploader.upload(path, {});
    QVERIFY(finished.wait(20000));
    const auto outcome = finished.first().first().value<RecordingUploader::Outcome>();
    QCOMPARE(outcome.message,
             QStringLiteral("Upload failed: the service did not answer within 0.5 seconds"));
    QVERIFY(outcome.keepForRetry);
    QCOMPARE(outcome.path, path); // what Retry is to send
    QVERIFY(QFile::exists(path));
}

void TestUpload::fileInUseIsNotSentTwice()
{
    // Another program (here a second controller) is sending the recording:
    // a second upload of it is refused, not sent beside it, and goes once
    // the first has let go.
    World w;
    const QString path = w.makeRecording();
    w.service->script("POST", kUpload, ScriptedAnswer::delayed(std::chrono::seconds(30)));
    w.recorder.uploadRecording(path);
    QTRY_COMPARE(w.service->requestCount("POST", kUpload), 1);

    AudioRecorder other;
    other.setAuthManager(&w.auth);
    other.uploadRecording(path);
    QTRY_COMPARE(other.state().kind(), Kind::Error);
    QCOMPARE(other.state().message(),
             QStringLiteral("This recording is still being written or uploaded by another "
                            "program: ") +
                 path);
    QCOMPARE(other.failedUploadPath(), path);
    QVERIFY(other.canRetryUpload());

    w.recorder.cancelUpload();
    w.service->clearScripts();
    other.retryUpload();
    QTRY_COMPARE_WITH_TIMEOUT(other.state().kind(), Kind::Uploaded, 20000);
    QCOMPARE(w.service->requestCount("POST", kUpload), 2);
    QVERIFY(!QFile::exists(path));
}

void TestUpload::fileThatChangesWhileSentIsKept()
{
    // A program that writes without asking appends to the recording while
    // its start is on its way: the service has only what was sent, so the
    // file is not deleted.
    World w;
    const QString path = w.makeRecording();
    const QByteArray sent = readAll(path);
    bool appended = false;
    connect(&w.recorder, &AudioRecorder::stateChanged, this, [&] {
        if (appended || w.recorder.state().kind() != Kind::Uploading ||
            w.recorder.state().progress() <= 0.0)
            return;
        QFile f(path);
        appended = f.open(QIODevice::Append) && f.write("more") == 4;
    });
    const RecordingState end = w.upload(path);
    QVERIFY(appended);
    QCOMPARE(end.kind(), Kind::Uploaded);
    QVERIFY(readAll(path) == sent + "more");
    QCOMPARE(w.posts({kUpload}).first().streamedBodySize,
             w.posts({kUpload}).first().header("Content-Length").toLongLong());
}

namespace {

// The retries' waits, which the test ends itself.
struct TestClock {
    std::vector<std::pair<std::chrono::minutes, std::function<void()>>> waits;
    DelayedCall delays()
    {
        return [this](std::chrono::milliseconds delay, std::function<void()> fn) {
            waits.emplace_back(std::chrono::duration_cast<std::chrono::minutes>(delay),
                               std::move(fn));
        };
    }
    std::vector<int> minutes() const
    {
        std::vector<int> out;
        for (const auto& w : waits)
            out.push_back(static_cast<int>(w.first.count()));
        return out;
    }
};

RecordingUploader::Outcome failUpload(World& w, const QString& path)
{
    RecordingUploader uploader;
    uploader.setAuthManager(&w.auth);
    QSignalSpy done(&uploader, &RecordingUploader::finished);
    uploader.upload(path, {});
    if (!done.wait(20000))
        qFatal("the upload did not finish");
    return done.first().first().value<RecordingUploader::Outcome>();
}

} // namespace

void TestUpload::networkFailuresAreRetriedOnTheirSchedule()
{
    World w;
    const QString path = w.makeRecording();
    w.service->script("POST", kUpload, ScriptedAnswer::reply(503));
    const RecordingUploader::Outcome first = failUpload(w, path);
    QVERIFY(first.transient);
    // The list of recordings not uploaded says why it is there.
    const auto listed = scanPendingRecordings(recordingsDirectory(), {});
    QCOMPARE(listed.size(), size_t(1));
    QCOMPARE(listed[0].reason, QStringLiteral("Upload failed (HTTP 503)"));

    TestClock clock;
    UploadRetryScheduler retries(&w.auth, clock.delays());
    QSignalSpy tries(&retries, &UploadRetryScheduler::finished);
    retries.add(first);
    const auto runLast = [&] {
        const int before = static_cast<int>(tries.size());
        clock.waits.back().second();
        QVERIFY(tries.size() > before || tries.wait(20000));
    };
    // No answer at all, a 5xx, a file that another program is sending, a 5xx.
    for (int i = 0; i < 2; ++i)
        w.service->script("GET", QStringLiteral("/api/auth/me"), ScriptedAnswer::dropped());
    runLast();
    w.service->clearScripts();
    w.service->script("POST", kUpload, ScriptedAnswer::reply(504));
    runLast();
    {
        RecordingFileLock elsewhere = RecordingFileLock::tryLock(path);
        QVERIFY(elsewhere.isHeld());
        runLast();
    }
    w.service->script("POST", kUpload, ScriptedAnswer::reply(503));
    runLast();
    QCOMPARE(clock.minutes(), (std::vector<int>{1, 5, 15, 60, 60}));
    QCOMPARE(w.posts({kUpload}).size(), 3);

    // The network comes back before the hour is up: at once, and the hour's
    // timer then does nothing.
    retries.retryAllNow();
    QVERIFY(tries.wait(20000));
    QCOMPARE(tries.last().first().value<RecordingUploader::Outcome>().kind,
             RecordingUploader::Outcome::Kind::Uploaded);
    QVERIFY(!QFile::exists(path));
    clock.waits.back().second();
    QVERIFY(!retries.isWaiting(path));
    QCOMPARE(w.posts({kUpload}).size(), 4);
    QCOMPARE(clock.waits.size(), size_t(5));
    QVERIFY(scanPendingRecordings(recordingsDirectory(), {}).empty());
}

void TestUpload::refusalsAndAnEndedSessionStopTheRetries()
{
    World w;
    const QString path = w.makeRecording();
    TestClock clock;
    UploadRetryScheduler retries(&w.auth, clock.delays());
    QSignalSpy tries(&retries, &UploadRetryScheduler::finished);

    // A refusal is not tried again.
    w.service->script("POST", kUpload, ScriptedAnswer::reply(413, R"({"detail":"Too large"})"));
    retries.retryNow(path);
    QVERIFY(tries.wait(20000));
    QVERIFY(!tries.last().first().value<RecordingUploader::Outcome>().transient);
    QVERIFY(clock.waits.empty());
    QVERIFY(!retries.isWaiting(path));

    // A 401 that a refresh cannot mend pauses everything until sign-in.
    w.service->script("POST", kUpload, ScriptedAnswer::reply(401));
    w.service->script("POST", kRefresh, ScriptedAnswer::delayed(std::chrono::milliseconds(0)));
    w.service->script("POST", kRefresh, ScriptedAnswer::reply(401, R"({"detail":"revoked"})"));
    retries.retryNow(path);
    QVERIFY(tries.wait(20000));
    QVERIFY(retries.isPaused());
    QVERIFY(!w.auth.isLoggedIn());
    retries.retryAllNow();
    QCOMPARE(w.posts({kUpload}).size(), 2);

    w.auth.login(LocalService::kDemoEmail, LocalService::kDemoPassword);
    QVERIFY(tries.wait(20000));
    QCOMPARE(tries.last().first().value<RecordingUploader::Outcome>().kind,
             RecordingUploader::Outcome::Kind::Uploaded);
    QVERIFY(clock.waits.empty());
}

QTEST_GUILESS_MAIN(TestUpload)
#include "tst_upload.moc"
