// The core primitives every subsystem stands on: serial queues (order,
// confinement, named threads, timers, shutdown), the private recordings
// directory and the server-origin precedence. (The log thinning rule is
// checked where it is used, by the mixer's log cadence.)

#include "core/backoff.h"
#include "core/paths.h"
#include "core/serialqueue.h"
#include "core/settings.h"
#include "support/isolatedenvironment.h"

#include <QFileInfo>
#include <QProcess>
#include <QTest>
#include <QTimer>

#include <atomic>
#include <pthread.h>
#include <sys/stat.h>
#include <vector>

using namespace sorv;

class TestCore : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void serialQueueRunsWorkInOrderOnItsOwnNamedThread()
    {
        SerialQueue queue(QStringLiteral("com.sorvelandrix.audio"));
        QVERIFY(!queue.isCurrent());
        std::vector<int> order;
        bool onQueue = true;
        char name[32] = {};
        for (int i = 0; i < 1000; ++i)
            queue.post([&, i] {
                onQueue = onQueue && queue.isCurrent();
                order.push_back(i);
            });
        queue.postAndWait([&] { pthread_getname_np(pthread_self(), name, sizeof name); });
        QVERIFY(onQueue);
        QCOMPARE(order.size(), size_t(1000));
        for (int i = 0; i < 1000; ++i)
            QCOMPARE(order[size_t(i)], i);
        // Linux keeps 15 characters of a thread name; the distinctive end survives.
        QCOMPARE(QString::fromLatin1(name), QStringLiteral("sorvelandrix.audio").right(15));
    }

    void serialQueueTimersFireOnTheQueue()
    {
        SerialQueue queue(QStringLiteral("com.sorvelandrix.test"));
        std::atomic<int> ticks{0};
        std::atomic<bool> allOnQueue{true};
        queue.post([&] {
            auto* timer = new QTimer(queue.context());
            QObject::connect(timer, &QTimer::timeout, queue.context(), [&] {
                allOnQueue = allOnQueue && queue.isCurrent();
                ++ticks;
            });
            timer->start(5);
        });
        QTRY_VERIFY_WITH_TIMEOUT(ticks >= 3, 5000);
        QVERIFY(allOnQueue);
        queue.shutdown(); // destroys the timer on its own thread
        const int after = ticks;
        QTest::qWait(30);
        QCOMPARE(ticks.load(), after);
    }

    void serialQueueShutdownDrainsPostedWork()
    {
        std::atomic<int> ran{0};
        {
            SerialQueue queue(QStringLiteral("drain"));
            for (int i = 0; i < 100; ++i)
                queue.post([&] { ++ran; });
        } // destructor shuts down
        QCOMPARE(ran.load(), 100);

        {
            // A queue may be told to stop from its own work (an engine that gives
            // up); the owner's destructor then joins it without deadlock.
            SerialQueue selfStopping(QStringLiteral("self-stopping"));
            selfStopping.postAndWait([&] { selfStopping.shutdown(); });
            selfStopping.post([&] { ++ran; }); // refused
        }
        QCOMPARE(ran.load(), 100);

        SerialQueue queue(QStringLiteral("closed"));
        queue.shutdown();
        queue.post([&] { ++ran; }); // a no-op, not a crash
        queue.postAndWait([&] { ++ran; });
        QCOMPARE(ran.load(), 100);
    }

    void recordingsDirectoryIsPrivate()
    {
        test::IsolatedEnvironment env;
        const QString dir = recordingsDirectory();
        QCOMPARE(dir, env.root() + QStringLiteral("/cache/sorvelandrix"));
        struct stat st {};
        QCOMPARE(::stat(QFile::encodeName(dir).constData(), &st), 0);
        QCOMPARE(st.st_mode & 0777, 0700u);
        QVERIFY(isInRecordingsDirectory(dir + QStringLiteral("/sorvelandrix_1.wav")));
        QVERIFY(!isInRecordingsDirectory(env.root() + QStringLiteral("/elsewhere.wav")));
    }

    void serverOriginPrecedence()
    {
        test::IsolatedEnvironment env;
        QCOMPARE(Settings::serverOrigin(), QStringLiteral("https://sorvelandrix.com"));
        Settings::setValue(Settings::kServerKey, QStringLiteral("http://127.0.0.1:9000"));
        QCOMPARE(Settings::serverOrigin(), QStringLiteral("http://127.0.0.1:9000"));
        Settings::setServerOverride(QStringLiteral("http://localhost:1234/"));
        QCOMPARE(Settings::serverOrigin(), QStringLiteral("http://localhost:1234/"));
        // The override is for this run only: it is never written.
        QCOMPARE(Settings::value(Settings::kServerKey).toString(),
                 QStringLiteral("http://127.0.0.1:9000"));
        QVERIFY(QFileInfo::exists(env.root() +
                                  QStringLiteral("/config/Sorvelandrix/SorvelandrixRecorder.ini")));
        Settings::setServerOverride({});
    }

    void deliberateRaceIsReported()
    {
#ifndef SORV_THREAD_SANITIZER
        QSKIP("only meaningful in the ThreadSanitizer build");
#else
        // The suppressions for Qt's and glib's own doings must leave our code
        // judged: a plain race of ours on a Qt-made thread is still a report.
        QProcess probe;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        QString options = env.value(QStringLiteral("TSAN_OPTIONS"));
        options.replace(QStringLiteral("halt_on_error=1"), QStringLiteral("halt_on_error=0"));
        env.insert(QStringLiteral("TSAN_OPTIONS"), options + QStringLiteral(" exitcode=66"));
        probe.setProcessEnvironment(env);
        probe.start(test::buildDirectory() + QStringLiteral("/tests/core/tsan_race_probe"));
        QVERIFY(probe.waitForFinished(60000));
        const QString report = QString::fromUtf8(probe.readAllStandardError());
        QVERIFY2(report.contains(QStringLiteral("WARNING: ThreadSanitizer: data race")),
                 qPrintable(report));
        // Both sides of the race are ours, and both are named.
        QVERIFY2(report.count(QStringLiteral("tsan_race_probe.cpp:")) >= 2, qPrintable(report));
        QCOMPARE(probe.exitCode(), 66);
#endif
    }

    void backoffSchedules()
    {
        using std::chrono::milliseconds;
        using std::chrono::seconds;
        // The wait after each failure in a row, 0 where no attempt follows.
        const auto waits = [](const Backoff& backoff) {
            QList<qint64> list;
            for (int failures = 1; failures <= 7; ++failures)
                list << backoff.after(failures).value_or(milliseconds(0)).count();
            return list;
        };
        QCOMPARE(waits(Backoff::doubling(seconds(1), seconds(30))),
                 (QList<qint64>{1000, 2000, 4000, 8000, 16000, 30000, 30000}));
        QCOMPARE(waits(Backoff::linear(seconds(1), 4)),
                 (QList<qint64>{1000, 2000, 3000, 0, 0, 0, 0}));
        QCOMPARE(waits(Backoff{milliseconds(250)}),
                 (QList<qint64>{250, 250, 250, 250, 250, 250, 250}));
        // No overflow however long a service stays away.
        QCOMPARE(*Backoff::doubling(seconds(1), milliseconds::max()).after(100),
                 milliseconds::max());
    }
};

QTEST_GUILESS_MAIN(TestCore)
#include "tst_core.moc"
