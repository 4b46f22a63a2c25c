#include "pulsecontext.h"

#include "audio/pulsecapturestream.h"

#include <QCoreApplication>

#include <pulse/pulseaudio.h>
#include <pulse/rtclock.h>

namespace sorv {

namespace {

// Owns a pa_operation and drops our reference however the wait ends.
class Operation {
public:
    explicit Operation(pa_operation* op) : m_op(op) {}
    ~Operation()
    {
        if (m_op)
            pa_operation_unref(m_op);
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;
    explicit operator bool() const { return m_op != nullptr; }
    bool running() const { return m_op && pa_operation_get_state(m_op) == PA_OPERATION_RUNNING; }
    void cancel()
    {
        if (running())
            pa_operation_cancel(m_op);
    }

private:
    pa_operation* m_op;
};

bool contextGood(pa_context* c)
{
    return c && PA_CONTEXT_IS_GOOD(pa_context_get_state(c));
}

QString paText(const char* s)
{
    return s ? QString::fromUtf8(s) : QString();
}

struct TimeoutFlag {
    PulseContext* owner;
    bool fired = false;
};

} // namespace

PulseContext::SourceInfo PulseContext::toSourceInfo(const pa_source_info& i)
{
    SourceInfo s;
    s.name = paText(i.name);
    s.description = paText(i.description);
    s.index = i.index;
    s.channels = i.sample_spec.channels;
    s.sampleRate = i.sample_spec.rate;
    s.sampleFormat = i.sample_spec.format;
    s.isMonitor = i.monitor_of_sink != PA_INVALID_INDEX;
    return s;
}

PulseContext::SinkInfo PulseContext::toSinkInfo(const pa_sink_info& i)
{
    return SinkInfo{paText(i.name), paText(i.description), i.index, paText(i.monitor_source_name)};
}

PulseContext::Lock::Lock(const PulseContext& c) : m_mainloop(c.m_mainloop)
{
    if (m_mainloop)
        pa_threaded_mainloop_lock(m_mainloop);
}

PulseContext::Lock::~Lock()
{
    if (m_mainloop)
        pa_threaded_mainloop_unlock(m_mainloop);
}

PulseContext::PulseContext() = default;

PulseContext::~PulseContext()
{
    disconnect();
}

void PulseContext::disconnect()
{
    if (m_context) {
        {
            Lock lock(*this);
            pa_context_set_state_callback(m_context, nullptr, nullptr);
            pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
            pa_context_disconnect(m_context);
            pa_context_unref(m_context);
        }
        m_context = nullptr;
    }
    m_wasReady = false;
    if (m_mainloop) {
        pa_threaded_mainloop_stop(m_mainloop);
        pa_threaded_mainloop_free(m_mainloop);
        m_mainloop = nullptr;
    }
}

void PulseContext::signal()
{
    pa_threaded_mainloop_signal(m_mainloop, 0);
}

bool PulseContext::waitLocked(const std::function<bool()>& done, int timeoutMs)
{
    if (done())
        return true;
    TimeoutFlag flag{this};
    pa_time_event* timer = pa_context_rttime_new(
        m_context, pa_rtclock_now() + static_cast<pa_usec_t>(timeoutMs) * PA_USEC_PER_MSEC,
        [](pa_mainloop_api*, pa_time_event*, const struct timeval*, void* userdata) {
            auto* f = static_cast<TimeoutFlag*>(userdata);
            f->fired = true;
            f->owner->signal();
        },
        &flag);
    while (!done() && !flag.fired)
        pa_threaded_mainloop_wait(m_mainloop);
    if (timer)
        pa_threaded_mainloop_get_api(m_mainloop)->time_free(timer);
    return done();
}

bool PulseContext::connect(const QString& clientName, ConnectError* error, QString* message,
                           int timeoutMs)
{
    auto fail = [&](ConnectError e, const QString& text) {
        if (error)
            *error = e;
        if (message)
            *message = text;
        disconnect();
        return false;
    };
    disconnect();
    m_mainloop = pa_threaded_mainloop_new();
    if (!m_mainloop)
        return fail(ConnectError::NoServer, QStringLiteral("no PulseAudio main loop"));
    pa_threaded_mainloop_set_name(m_mainloop, "sorv-pulse");

    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_APPLICATION_NAME, "Sorvelandrix Recorder");
    pa_proplist_sets(props, PA_PROP_APPLICATION_ID, "com.sorvelandrix.recorder");
    m_context = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(m_mainloop),
                                             clientName.toUtf8().constData(), props);
    pa_proplist_free(props);
    if (!m_context)
        return fail(ConnectError::NoServer, QStringLiteral("no PulseAudio context"));

    pa_context_set_state_callback(m_context, &PulseContext::onState, this);
    // Never autospawn: a missing server is reported, not papered over.
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        const int err = pa_context_errno(m_context);
        return fail(err == PA_ERR_ACCESS ? ConnectError::AccessDenied : ConnectError::NoServer,
                    paText(pa_strerror(err)));
    }
    if (pa_threaded_mainloop_start(m_mainloop) < 0)
        return fail(ConnectError::NoServer,
                    QCoreApplication::translate("AudioEngine", "PulseAudio thread did not start"));

    bool ready = false;
    int err = 0;
    {
        Lock lock(*this);
        waitLocked(
            [this] {
                const auto s = pa_context_get_state(m_context);
                return s == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(s);
            },
            timeoutMs);
        ready = pa_context_get_state(m_context) == PA_CONTEXT_READY;
        err = ready ? 0 : pa_context_errno(m_context);
        m_wasReady = ready;
    }
    if (!ready) {
        if (err == PA_OK)
            err = PA_ERR_TIMEOUT;
        return fail(err == PA_ERR_ACCESS ? ConnectError::AccessDenied : ConnectError::NoServer,
                    paText(pa_strerror(err)));
    }
    if (error)
        *error = ConnectError::None;
    return true;
}

void PulseContext::onState(pa_context* c, void* userdata)
{
    auto* self = static_cast<PulseContext*>(userdata);
    self->signal();
    if (self->m_wasReady && !PA_CONTEXT_IS_GOOD(pa_context_get_state(c))) {
        self->m_wasReady = false;
        if (self->m_onLost)
            self->m_onLost();
    }
}

void PulseContext::setConnectionLostHandler(ConnectionLostHandler handler)
{
    Lock lock(*this);
    m_onLost = std::move(handler);
}

bool PulseContext::subscribe(SubscriptionHandler handler, int timeoutMs)
{
    if (!m_context)
        return false;
    struct Result {
        PulseContext* self;
        bool ok = false;
    } result{this};
    Lock lock(*this);
    m_onEvent = std::move(handler);
    pa_context_set_subscribe_callback(
        m_context,
        [](pa_context*, pa_subscription_event_type_t t, uint32_t index, void* userdata) {
            auto* self = static_cast<PulseContext*>(userdata);
            if (!self->m_onEvent)
                return;
            Facility facility = Facility::Other;
            switch (t & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) {
            case PA_SUBSCRIPTION_EVENT_SOURCE:
                facility = Facility::Source;
                break;
            case PA_SUBSCRIPTION_EVENT_SINK:
                facility = Facility::Sink;
                break;
            case PA_SUBSCRIPTION_EVENT_SERVER:
                facility = Facility::Server;
                break;
            default:
                break;
            }
            EventType type = EventType::Change;
            switch (t & PA_SUBSCRIPTION_EVENT_TYPE_MASK) {
            case PA_SUBSCRIPTION_EVENT_NEW:
                type = EventType::New;
                break;
            case PA_SUBSCRIPTION_EVENT_REMOVE:
                type = EventType::Remove;
                break;
            default:
                break;
            }
            self->m_onEvent(facility, type, index);
        },
        this);
    Operation op(pa_context_subscribe(
        m_context,
        static_cast<pa_subscription_mask_t>(
            PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER),
        [](pa_context*, int success, void* userdata) {
            auto* r = static_cast<Result*>(userdata);
            r->ok = success != 0;
            r->self->signal();
        },
        &result));
    if (!op)
        return false;
    waitLocked([&] { return !op.running() || !contextGood(m_context); }, timeoutMs);
    op.cancel();
    return result.ok;
}

bool PulseContext::isReady() const
{
    if (!m_context)
        return false;
    Lock lock(*this);
    return pa_context_get_state(m_context) == PA_CONTEXT_READY;
}

int PulseContext::lastError() const
{
    if (!m_context)
        return PA_ERR_CONNECTIONREFUSED;
    Lock lock(*this);
    return pa_context_errno(m_context);
}

QString PulseContext::lastErrorText() const
{
    return paText(pa_strerror(lastError()));
}

std::optional<PulseContext::ServerInfo> PulseContext::serverInfo(int timeoutMs)
{
    if (!m_context)
        return std::nullopt;
    struct Result {
        PulseContext* self;
        std::optional<ServerInfo> info;
    } result{this, std::nullopt};
    Lock lock(*this);
    Operation op(pa_context_get_server_info(
        m_context,
        [](pa_context*, const pa_server_info* i, void* userdata) {
            auto* r = static_cast<Result*>(userdata);
            if (i)
                r->info = ServerInfo{paText(i->default_sink_name), paText(i->default_source_name)};
            r->self->signal();
        },
        &result));
    if (!op)
        return std::nullopt;
    waitLocked([&] { return !op.running() || !contextGood(m_context); }, timeoutMs);
    op.cancel();
    return result.info;
}

std::optional<PulseContext::SourceInfo> PulseContext::sourceInfo(const QString& name, int timeoutMs)
{
    if (!m_context || name.isEmpty())
        return std::nullopt;
    struct Result {
        PulseContext* self;
        std::optional<SourceInfo> info;
    } result{this, std::nullopt};
    Lock lock(*this);
    Operation op(pa_context_get_source_info_by_name(
        m_context, name.toUtf8().constData(),
        [](pa_context*, const pa_source_info* i, int eol, void* userdata) {
            auto* r = static_cast<Result*>(userdata);
            if (eol == 0 && i)
                r->info = toSourceInfo(*i);
            r->self->signal();
        },
        &result));
    if (!op)
        return std::nullopt;
    waitLocked([&] { return !op.running() || !contextGood(m_context); }, timeoutMs);
    op.cancel();
    return result.info;
}

std::optional<QList<PulseContext::SourceInfo>> PulseContext::sources(int timeoutMs)
{
    if (!m_context)
        return std::nullopt;
    struct Result {
        PulseContext* self;
        QList<SourceInfo> list;
        bool complete = false;
    } result{this, {}};
    Lock lock(*this);
    Operation op(pa_context_get_source_info_list(
        m_context,
        [](pa_context*, const pa_source_info* i, int eol, void* userdata) {
            auto* r = static_cast<Result*>(userdata);
            if (eol == 0 && i)
                r->list.append(toSourceInfo(*i));
            if (eol > 0)
                r->complete = true;
            r->self->signal();
        },
        &result));
    if (!op)
        return std::nullopt;
    waitLocked([&] { return !op.running() || !contextGood(m_context); }, timeoutMs);
    op.cancel();
    if (!result.complete)
        return std::nullopt;
    return result.list;
}

std::optional<QList<PulseContext::SinkInfo>> PulseContext::sinks(int timeoutMs)
{
    if (!m_context)
        return std::nullopt;
    struct Result {
        PulseContext* self;
        QList<SinkInfo> list;
        bool complete = false;
    } result{this, {}};
    Lock lock(*this);
    Operation op(pa_context_get_sink_info_list(
        m_context,
        [](pa_context*, const pa_sink_info* i, int eol, void* userdata) {
            auto* r = static_cast<Result*>(userdata);
            if (eol == 0 && i)
                r->list.append(toSinkInfo(*i));
            if (eol > 0)
                r->complete = true;
            r->self->signal();
        },
        &result));
    if (!op)
        return std::nullopt;
    waitLocked([&] { return !op.running() || !contextGood(m_context); }, timeoutMs);
    op.cancel();
    if (!result.complete)
        return std::nullopt;
    return result.list;
}

std::unique_ptr<CaptureBackend::Stream> PulseContext::openStream(const QString& streamName,
                                                                 const QString& sourceName,
                                                                 std::uint32_t framesPerChunk,
                                                                 CaptureBackend::Stream::Sink sink)
{
    return std::make_unique<PulseCaptureStream>(*this, streamName, sourceName, framesPerChunk,
                                                std::move(sink));
}

} // namespace sorv
