// The delay from a mixed buffer entering LiveAudioStreamer::sendAudio() to
// the frame it completes arriving at a WebSocket peer on loopback, with the
// recorder's buffers (4 096 samples) fed at their real pace. The peer is a
// QWebSocketServer on a thread of its own that stamps each binary message as
// it arrives, so the figure is an upper bound of the time to the frame
// leaving our socket. Prints the median, the 99th percentile and the maximum.
//
// live_latency [SECONDS]   (default 30)

#include "core/log.h"
#include "transcript/liveaudiostreamer.h"
#include "transcript/livepcmframer.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>
#include <QWebSocket>
#include <QWebSocketServer>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <vector>

using namespace sorv;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kBufferSamples = 4096;

// Stamps the arrival of every binary message.
class Peer : public QObject {
public:
    std::mutex mutex;
    std::vector<Clock::time_point> arrivals;
    quint16 port = 0;

    void listen()
    {
        m_server =
            new QWebSocketServer(QStringLiteral("peer"), QWebSocketServer::NonSecureMode, this);
        m_server->listen(QHostAddress::LocalHost, 0);
        port = m_server->serverPort();
        connect(m_server, &QWebSocketServer::newConnection, this, [this] {
            QWebSocket* socket = m_server->nextPendingConnection();
            connect(socket, &QWebSocket::binaryMessageReceived, this, [this](const QByteArray& m) {
                const auto now = Clock::now();
                if (m.isEmpty())
                    return;
                std::lock_guard lock(mutex);
                arrivals.push_back(now);
            });
        });
    }

private:
    QWebSocketServer* m_server = nullptr;
};

double percentile(std::vector<double> v, double p)
{
    if (v.empty())
        return 0.0;
    std::sort(v.begin(), v.end());
    const auto i = std::size_t(std::ceil(p * double(v.size()))) - 1;
    return v[std::min(i, v.size() - 1)];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const double seconds = argc > 1 ? std::atof(argv[1]) : 30.0;
    setLogSink([](const QString&) {});

    QThread peerThread;
    peerThread.start();
    auto* peer = new Peer;
    peer->moveToThread(&peerThread);
    QMetaObject::invokeMethod(
        peer, [peer] { peer->listen(); }, Qt::BlockingQueuedConnection);

    LiveAudioStreamer streamer;
    streamer.start(QStringLiteral("http://127.0.0.1:%1").arg(peer->port), QStringLiteral("bench"),
                   {QStringLiteral("en")});

    // A tone, so that the frames are not all zeros.
    AudioBuffer buffer;
    buffer.samples.resize(kBufferSamples);
    for (int i = 0; i < kBufferSamples; ++i)
        buffer.samples[std::size_t(i)] = 0.3f * std::sin(float(i) * 0.0577f);

    const int total = int(seconds * 48000.0 / kBufferSamples);
    std::vector<Clock::time_point> sent;
    sent.reserve(std::size_t(total));
    QTimer feed;
    feed.setTimerType(Qt::PreciseTimer);
    feed.setInterval(1000 * kBufferSamples / 48000);
    QObject::connect(&feed, &QTimer::timeout, &app, [&] {
        if (int(sent.size()) == total) {
            feed.stop();
            QTimer::singleShot(500, &app, &QCoreApplication::quit);
            return;
        }
        sent.push_back(Clock::now());
        streamer.sendAudio(buffer);
    });
    // Measured once the connection is open.
    QTimer::singleShot(1500, &app, [&] { feed.start(); });
    app.exec();

    std::vector<Clock::time_point> arrivals;
    {
        std::lock_guard lock(peer->mutex);
        arrivals = peer->arrivals;
    }
    // Frame k is completed by the buffer whose output reaches its end.
    const int perBuffer = kBufferSamples / 3;
    std::vector<double> delaysMs;
    for (std::size_t k = 0; k < arrivals.size(); ++k) {
        const std::size_t needed = (k + 1) * LivePcmFramer::kFrameSamples;
        const std::size_t b = (needed + perBuffer - 1) / perBuffer - 1;
        if (b >= sent.size())
            break;
        delaysMs.push_back(
            std::chrono::duration<double, std::milli>(arrivals[k] - sent[b]).count());
    }
    std::printf(
        "%zu buffers, %zu frames: delay median %.2f ms, 99th percentile %.2f ms, max %.2f ms\n",
        sent.size(), delaysMs.size(), percentile(delaysMs, 0.5), percentile(delaysMs, 0.99),
        percentile(delaysMs, 1.0));

    streamer.stop();
    QMetaObject::invokeMethod(
        peer, [peer] { delete peer; }, Qt::BlockingQueuedConnection);
    peerThread.quit();
    peerThread.wait();
    return delaysMs.empty() ? 1 : 0;
}
