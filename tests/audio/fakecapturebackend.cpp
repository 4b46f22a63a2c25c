#include "fakecapturebackend.h"

#include <algorithm>
#include <cmath>

namespace sorv::test {

// --- ManualClock ----------------------------------------------------------------

double ManualClock::seconds() const
{
    return static_cast<double>(nanoseconds()) / 1e9;
}

std::int64_t ManualClock::nanoseconds() const
{
    std::lock_guard g(m_lock);
    return m_nowNs;
}

DelayedCall ManualClock::delayedCall()
{
    return [this](std::chrono::milliseconds delay, std::function<void()> fn) {
        std::lock_guard g(m_lock);
        m_waits.push_back(
            {m_nowNs + std::chrono::nanoseconds(delay).count(), m_serial++, std::move(fn)});
    };
}

void ManualClock::advance(std::chrono::nanoseconds by)
{
    std::unique_lock g(m_lock);
    const std::int64_t until = m_nowNs + by.count();
    for (;;) {
        const auto next = std::min_element(m_waits.begin(), m_waits.end(), [](auto& a, auto& b) {
            return a.dueNs < b.dueNs || (a.dueNs == b.dueNs && a.serial < b.serial);
        });
        if (next == m_waits.end() || next->dueNs > until) {
            m_nowNs = until;
            return;
        }
        m_nowNs = std::max(m_nowNs, next->dueNs);
        const std::function<void()> fn = std::move(next->fn);
        m_waits.erase(next);
        g.unlock();
        fn();
        g.lock();
    }
}

// --- The server's state -------------------------------------------------------

struct FakeCaptureBackend::Device {
    QString description;
    std::uint32_t index = 0;
    bool isMonitor = false;
    double frequency = 0;
    float level = 0;
    bool held = false;
    double phase = 0;
    std::int64_t latencyNs = 0;
};

struct FakeCaptureBackend::ConnectionState {
    bool lost = false;
    SubscriptionHandler onEvent;
    ConnectionLostHandler onLost;
};

struct FakeCaptureBackend::StreamState {
    QString source;
    std::uint32_t sourceIndex = 0;
    bool started = false;
    bool failed = false;
    Stream::Sink sink;
    Stream::FailureHandler onFailure;
    std::shared_ptr<ConnectionState> connection;
};

struct FakeCaptureBackend::State {
    std::mutex lock;
    bool running = true;
    std::map<QString, Device> sources;
    std::map<QString, Device> sinks;
    QString defaultSource;
    QString defaultSink;
    std::uint32_t nextIndex = 0;
    std::vector<std::shared_ptr<ConnectionState>> connections;
    std::vector<std::shared_ptr<StreamState>> streams; // in the order they were opened
    std::map<QString, int> opened;
    struct Refusal {
        int times = 0;
        bool accessDenied = false;
        QString message;
    };
    std::map<QString, Refusal> refusals;
    // Handlers to call once the lock is released: they post to other threads.
    std::vector<std::function<void()>> calls;

    bool ready(const ConnectionState& c) const { return running && !c.lost; }

    void event(Facility facility, EventType type, std::uint32_t index)
    {
        for (const auto& c : connections)
            if (!c->lost && c->onEvent)
                calls.emplace_back(
                    [h = c->onEvent, facility, type, index] { h(facility, type, index); });
    }
    void failStreamsOn(const QString& source)
    {
        for (const auto& s : streams)
            if ((source.isEmpty() || s->source == source) && s->started && !s->failed) {
                s->failed = true;
                if (s->onFailure)
                    calls.push_back(s->onFailure);
            }
    }
    // The server's choice when the default goes: a microphone before a monitor.
    void pickDefaultSource()
    {
        const auto rank = [](const Device& d) { return std::make_pair(d.isMonitor, d.index); };
        const auto best = std::min_element(sources.begin(), sources.end(), [&](auto& a, auto& b) {
            return rank(a.second) < rank(b.second);
        });
        defaultSource = best == sources.end() ? QString() : best->first;
        event(Facility::Server, EventType::Change, 0);
    }
    void pickDefaultSink()
    {
        defaultSink = sinks.empty() ? QString() : sinks.begin()->first;
        event(Facility::Server, EventType::Change, 0);
    }
    CaptureBackend::SourceInfo sourceInfo(const QString& name, const Device& d) const
    {
        return {name, d.description, d.index, 1, 48000, 5 /* float32le */, d.isMonitor};
    }
};

namespace {

using Guard = std::unique_lock<std::mutex>;

// Releases the lock, then calls what the change has to report.
void flush(FakeCaptureBackend::State& state, Guard& guard)
{
    std::vector<std::function<void()>> calls;
    calls.swap(state.calls);
    guard.unlock();
    for (const auto& call : calls)
        call();
}

class FakeStream : public CaptureBackend::Stream {
public:
    FakeStream(std::shared_ptr<FakeCaptureBackend::State> state,
               std::shared_ptr<FakeCaptureBackend::StreamState> stream)
        : m_state(std::move(state)), m_stream(std::move(stream))
    {}
    ~FakeStream() override
    {
        std::lock_guard g(m_state->lock);
        std::erase(m_state->streams, m_stream);
    }
    FakeStream(const FakeStream&) = delete;
    FakeStream& operator=(const FakeStream&) = delete;

    void setFailureHandler(FailureHandler handler) override
    {
        std::lock_guard g(m_state->lock);
        m_stream->onFailure = std::move(handler);
    }
    bool start(QString* message, bool* accessDenied, int) override
    {
        std::lock_guard g(m_state->lock);
        auto fail = [&](const QString& text, bool denied) {
            if (message)
                *message = text;
            if (accessDenied)
                *accessDenied = denied;
            return false;
        };
        if (!m_state->ready(*m_stream->connection))
            return fail(QStringLiteral("Connection terminated"), false);
        if (!m_state->sources.contains(m_stream->source))
            return fail(QStringLiteral("No such entity"), false);
        auto refusal = m_state->refusals.find(m_stream->source);
        if (refusal != m_state->refusals.end() && refusal->second.times > 0) {
            --refusal->second.times;
            return fail(refusal->second.message, refusal->second.accessDenied);
        }
        m_stream->started = true;
        m_stream->sourceIndex = m_state->sources[m_stream->source].index;
        ++m_state->opened[m_stream->source];
        return true;
    }
    CaptureBackend::Chunk takeRemaining() override
    {
        std::lock_guard g(m_state->lock);
        m_stream->sink = {};
        return {};
    }
    bool isRecording() const override
    {
        std::lock_guard g(m_state->lock);
        return m_stream->started && !m_stream->failed && m_state->ready(*m_stream->connection);
    }
    double sampleRate() const override { return 48000.0; }
    std::uint32_t channels() const override { return 1; }
    QString sourceName() const override { return m_stream->source; }
    std::uint32_t sourceIndex() const override
    {
        std::lock_guard g(m_state->lock);
        return m_stream->sourceIndex;
    }

private:
    std::shared_ptr<FakeCaptureBackend::State> m_state;
    std::shared_ptr<FakeCaptureBackend::StreamState> m_stream;
};

class FakeConnection : public CaptureBackend::Connection {
public:
    FakeConnection(std::shared_ptr<FakeCaptureBackend::State> state,
                   std::shared_ptr<FakeCaptureBackend::ConnectionState> connection)
        : m_state(std::move(state)), m_connection(std::move(connection))
    {}
    ~FakeConnection() override
    {
        std::lock_guard g(m_state->lock);
        std::erase(m_state->connections, m_connection);
    }
    FakeConnection(const FakeConnection&) = delete;
    FakeConnection& operator=(const FakeConnection&) = delete;

    bool isReady() const override
    {
        std::lock_guard g(m_state->lock);
        return m_state->ready(*m_connection);
    }
    bool subscribe(CaptureBackend::SubscriptionHandler handler, int) override
    {
        std::lock_guard g(m_state->lock);
        m_connection->onEvent = std::move(handler);
        return m_state->ready(*m_connection);
    }
    void setConnectionLostHandler(CaptureBackend::ConnectionLostHandler handler) override
    {
        std::lock_guard g(m_state->lock);
        m_connection->onLost = std::move(handler);
    }
    std::optional<CaptureBackend::ServerInfo> serverInfo(int) override
    {
        std::lock_guard g(m_state->lock);
        if (!m_state->ready(*m_connection))
            return std::nullopt;
        return CaptureBackend::ServerInfo{m_state->defaultSink, m_state->defaultSource};
    }
    std::optional<CaptureBackend::SourceInfo> sourceInfo(const QString& name, int) override
    {
        std::lock_guard g(m_state->lock);
        const auto it = m_state->sources.find(name);
        if (!m_state->ready(*m_connection) || it == m_state->sources.end())
            return std::nullopt;
        return m_state->sourceInfo(name, it->second);
    }
    std::optional<QList<CaptureBackend::SourceInfo>> sources(int) override
    {
        std::lock_guard g(m_state->lock);
        if (!m_state->ready(*m_connection))
            return std::nullopt;
        QList<CaptureBackend::SourceInfo> list;
        for (const auto& [name, d] : m_state->sources)
            list << m_state->sourceInfo(name, d);
        std::sort(list.begin(), list.end(), [](auto& a, auto& b) { return a.index < b.index; });
        return list;
    }
    std::optional<QList<CaptureBackend::SinkInfo>> sinks(int) override
    {
        std::lock_guard g(m_state->lock);
        if (!m_state->ready(*m_connection))
            return std::nullopt;
        QList<CaptureBackend::SinkInfo> list;
        for (const auto& [name, d] : m_state->sinks)
            list << CaptureBackend::SinkInfo{name, d.description, d.index,
                                             name + QStringLiteral(".monitor")};
        std::sort(list.begin(), list.end(), [](auto& a, auto& b) { return a.index < b.index; });
        return list;
    }
    QString lastErrorText() const override
    {
        return isReady() ? QStringLiteral("OK") : QStringLiteral("Connection terminated");
    }
    std::unique_ptr<CaptureBackend::Stream> openStream(const QString&, const QString& sourceName,
                                                       std::uint32_t,
                                                       CaptureBackend::Stream::Sink sink) override
    {
        auto stream = std::make_shared<FakeCaptureBackend::StreamState>();
        stream->source = sourceName;
        stream->sink = std::move(sink);
        stream->connection = m_connection;
        std::lock_guard g(m_state->lock);
        m_state->streams.push_back(stream);
        return std::make_unique<FakeStream>(m_state, stream);
    }

private:
    std::shared_ptr<FakeCaptureBackend::State> m_state;
    std::shared_ptr<FakeCaptureBackend::ConnectionState> m_connection;
};

} // namespace

// --- FakeCaptureBackend ---------------------------------------------------------

FakeCaptureBackend::FakeCaptureBackend()
    : m_state(std::make_shared<State>()), m_clock(std::make_shared<ManualClock>())
{}

std::shared_ptr<FakeCaptureBackend> FakeCaptureBackend::create()
{
    return std::shared_ptr<FakeCaptureBackend>(new FakeCaptureBackend());
}

std::unique_ptr<CaptureBackend::Connection>
FakeCaptureBackend::connect(const QString&, ConnectError* error, QString* message, int)
{
    std::lock_guard g(m_state->lock);
    if (!m_state->running) {
        if (error)
            *error = ConnectError::NoServer;
        if (message)
            *message = QStringLiteral("Connection refused");
        return nullptr;
    }
    if (error)
        *error = ConnectError::None;
    auto connection = std::make_shared<ConnectionState>();
    m_state->connections.push_back(connection);
    return std::make_unique<FakeConnection>(m_state, connection);
}

void FakeCaptureBackend::addMicrophone(const QString& name, const QString& description,
                                       double frequency, float level)
{
    Guard g(m_state->lock);
    const std::uint32_t index = m_state->nextIndex++;
    m_state->sources[name] = Device{description, index, false, frequency, level};
    m_state->event(Facility::Source, EventType::New, index);
    const auto current = m_state->sources.find(m_state->defaultSource);
    if (current == m_state->sources.end() || current->second.isMonitor) {
        m_state->defaultSource = name;
        m_state->event(Facility::Server, EventType::Change, 0);
    }
    flush(*m_state, g);
}

void FakeCaptureBackend::addOutput(const QString& name, const QString& description,
                                   double frequency, float level)
{
    Guard g(m_state->lock);
    const std::uint32_t index = m_state->nextIndex++;
    m_state->sinks[name] = Device{description, index};
    m_state->event(Facility::Sink, EventType::New, index);
    const std::uint32_t monitor = m_state->nextIndex++;
    m_state->sources[name + QStringLiteral(".monitor")] =
        Device{QStringLiteral("Monitor of ") + description, monitor, true, frequency, level};
    m_state->event(Facility::Source, EventType::New, monitor);
    if (m_state->defaultSink.isEmpty()) {
        m_state->defaultSink = name;
        m_state->event(Facility::Server, EventType::Change, 0);
    }
    if (m_state->defaultSource.isEmpty()) {
        m_state->defaultSource = name + QStringLiteral(".monitor");
        m_state->event(Facility::Server, EventType::Change, 0);
    }
    flush(*m_state, g);
}

void FakeCaptureBackend::remove(const QString& name)
{
    Guard g(m_state->lock);
    auto dropSource = [this](const QString& source) {
        const auto it = m_state->sources.find(source);
        if (it == m_state->sources.end())
            return;
        m_state->event(Facility::Source, EventType::Remove, it->second.index);
        m_state->sources.erase(it);
        m_state->failStreamsOn(source);
        if (m_state->defaultSource == source)
            m_state->pickDefaultSource();
    };
    if (const auto sink = m_state->sinks.find(name); sink != m_state->sinks.end()) {
        m_state->event(Facility::Sink, EventType::Remove, sink->second.index);
        m_state->sinks.erase(sink);
        dropSource(name + QStringLiteral(".monitor"));
        if (m_state->defaultSink == name)
            m_state->pickDefaultSink();
    } else {
        dropSource(name);
    }
    flush(*m_state, g);
}

void FakeCaptureBackend::recreate(const QString& name)
{
    Guard g(m_state->lock);
    const auto it = m_state->sources.find(name);
    if (it == m_state->sources.end())
        return;
    m_state->event(Facility::Source, EventType::Remove, it->second.index);
    m_state->failStreamsOn(name);
    it->second.index = m_state->nextIndex++;
    m_state->event(Facility::Source, EventType::New, it->second.index);
    flush(*m_state, g);
}

void FakeCaptureBackend::setDefaultSource(const QString& name)
{
    Guard g(m_state->lock);
    m_state->defaultSource = name;
    m_state->event(Facility::Server, EventType::Change, 0);
    flush(*m_state, g);
}

void FakeCaptureBackend::setDefaultSink(const QString& name)
{
    Guard g(m_state->lock);
    m_state->defaultSink = name;
    m_state->event(Facility::Server, EventType::Change, 0);
    flush(*m_state, g);
}

void FakeCaptureBackend::setLevel(const QString& name, float level)
{
    std::lock_guard g(m_state->lock);
    auto it = m_state->sources.find(name);
    if (it == m_state->sources.end())
        it = m_state->sources.find(name + QStringLiteral(".monitor"));
    if (it != m_state->sources.end())
        it->second.level = level;
}

void FakeCaptureBackend::setHeld(const QString& name, bool held)
{
    std::lock_guard g(m_state->lock);
    if (const auto it = m_state->sources.find(name); it != m_state->sources.end())
        it->second.held = held;
}

void FakeCaptureBackend::setLatency(const QString& name, std::chrono::milliseconds latency)
{
    std::lock_guard g(m_state->lock);
    if (const auto it = m_state->sources.find(name); it != m_state->sources.end())
        it->second.latencyNs = std::chrono::nanoseconds(latency).count();
}

void FakeCaptureBackend::refuseStreams(const QString& source, int times, bool accessDenied,
                                       const QString& message)
{
    std::lock_guard g(m_state->lock);
    m_state->refusals[source] = {times, accessDenied, message};
}

void FakeCaptureBackend::setRunning(bool running)
{
    Guard g(m_state->lock);
    if (m_state->running && !running) {
        m_state->failStreamsOn({});
        for (const auto& c : m_state->connections) {
            c->lost = true;
            if (c->onLost)
                m_state->calls.push_back(c->onLost);
        }
    }
    m_state->running = running;
    flush(*m_state, g);
}

void FakeCaptureBackend::pump(int chunks)
{
    constexpr double kRate = 48000.0;
    const auto chunkNs = std::chrono::nanoseconds(
        static_cast<std::int64_t>(std::llround(kChunkFrames / kRate * 1e9)));
    for (int n = 0; n < chunks; ++n) {
        std::vector<std::pair<Stream::Sink, Chunk>> deliveries;
        {
            std::lock_guard g(m_state->lock);
            std::map<QString, std::vector<float>> tones;
            for (const auto& s : m_state->streams) {
                const auto source = m_state->sources.find(s->source);
                if (!s->started || s->failed || !s->sink || source == m_state->sources.end() ||
                    source->second.held || !m_state->ready(*s->connection))
                    continue;
                Device& d = source->second;
                auto& tone = tones[s->source];
                if (tone.empty()) {
                    tone.resize(kChunkFrames);
                    for (float& x : tone) {
                        x = d.level * static_cast<float>(std::sin(d.phase));
                        d.phase += 2 * M_PI * d.frequency / kRate;
                    }
                    d.phase = std::fmod(d.phase, 2 * M_PI);
                }
                deliveries.emplace_back(s->sink,
                                        Chunk{tone, d.level, m_clock->nanoseconds(), d.latencyNs});
            }
        }
        for (auto& [sink, chunk] : deliveries)
            sink(std::move(chunk));
        m_clock->advance(chunkNs);
    }
}

QStringList FakeCaptureBackend::recordedSources() const
{
    std::lock_guard g(m_state->lock);
    QStringList out;
    for (const auto& s : m_state->streams)
        if (s->started && !s->failed && m_state->ready(*s->connection))
            out << s->source;
    return out;
}

int FakeCaptureBackend::streamsOpened(const QString& source) const
{
    std::lock_guard g(m_state->lock);
    const auto it = m_state->opened.find(source);
    return it == m_state->opened.end() ? 0 : it->second;
}

AudioEngine::Options FakeCaptureBackend::engineOptions()
{
    AudioEngine::Options o;
    o.backend = shared_from_this();
    o.clock = [clock = m_clock] { return clock->seconds(); };
    o.delays = [clock = m_clock](std::chrono::milliseconds delay, std::function<void()> fn) {
        clock->delayedCall()(delay, std::move(fn));
    };
    o.devices.reconnectInterval = std::chrono::milliseconds(5);
    return o;
}

} // namespace sorv::test
