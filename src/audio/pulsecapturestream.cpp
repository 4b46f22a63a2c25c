#include "pulsecapturestream.h"

#include "audio/pulsecontext.h"
#include "core/monotonicclock.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace sorv {

PulseCaptureStream::PulseCaptureStream(PulseContext& context, QString streamName,
                                       QString sourceName, std::uint32_t framesPerChunk, Sink sink)
    : m_context(context), m_streamName(std::move(streamName)), m_sourceName(std::move(sourceName)),
      m_framesPerChunk(std::max<std::uint32_t>(framesPerChunk, 1)), m_sink(std::move(sink))
{}

PulseCaptureStream::~PulseCaptureStream()
{
    close();
}

void PulseCaptureStream::close()
{
    if (!m_stream)
        return;
    PulseContext::Lock lock(m_context);
    pa_stream_set_read_callback(m_stream, nullptr, nullptr);
    pa_stream_set_state_callback(m_stream, nullptr, nullptr);
    if (PA_STREAM_IS_GOOD(pa_stream_get_state(m_stream)))
        pa_stream_disconnect(m_stream);
    pa_stream_unref(m_stream);
    m_stream = nullptr;
}

bool PulseCaptureStream::start(QString* message, bool* accessDenied, int timeoutMs)
{
    auto fail = [&](int err) {
        if (accessDenied)
            *accessDenied = err == PA_ERR_ACCESS;
        if (message)
            *message = QString::fromUtf8(pa_strerror(err));
        close();
        return false;
    };
    if (!m_context.context())
        return fail(PA_ERR_CONNECTIONREFUSED);

    pa_sample_spec spec{};
    spec.format = PA_SAMPLE_FLOAT32LE;
    spec.rate = 48000;
    spec.channels = 1;

    PulseContext::Lock lock(m_context);
    m_stream =
        pa_stream_new(m_context.context(), m_streamName.toUtf8().constData(), &spec, nullptr);
    if (!m_stream)
        return fail(pa_context_errno(m_context.context()));
    pa_stream_set_state_callback(m_stream, &PulseCaptureStream::onState, this);
    pa_stream_set_read_callback(m_stream, &PulseCaptureStream::onRead, this);

    pa_buffer_attr attr{};
    attr.maxlength = static_cast<std::uint32_t>(-1);
    attr.tlength = attr.prebuf = attr.minreq = static_cast<std::uint32_t>(-1);
    attr.fragsize = m_framesPerChunk * static_cast<std::uint32_t>(sizeof(float));
    // Timing kept current and interpolated, so the latency is known at every
    // read without asking the server.
    const auto flags =
        static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE |
                                       PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE);
    if (pa_stream_connect_record(m_stream, m_sourceName.toUtf8().constData(), &attr, flags) < 0)
        return fail(pa_context_errno(m_context.context()));

    m_context.waitLocked(
        [this] {
            const auto s = pa_stream_get_state(m_stream);
            return s == PA_STREAM_READY || !PA_STREAM_IS_GOOD(s);
        },
        timeoutMs);
    if (pa_stream_get_state(m_stream) != PA_STREAM_READY) {
        int err = pa_context_errno(m_context.context());
        if (err == PA_OK)
            err = PA_ERR_TIMEOUT;
        return fail(err);
    }
    if (const pa_sample_spec* actual = pa_stream_get_sample_spec(m_stream)) {
        m_rate = actual->rate;
        m_channels = std::max<std::uint32_t>(actual->channels, 1);
    }
    if (const char* device = pa_stream_get_device_name(m_stream))
        m_sourceName = QString::fromUtf8(device);
    m_sourceIndex = pa_stream_get_device_index(m_stream);
    m_pending.reserve(static_cast<size_t>(m_framesPerChunk) * m_channels);
    m_wasReady = true;
    return true;
}

bool PulseCaptureStream::isRecording() const
{
    if (!m_stream)
        return false;
    PulseContext::Lock lock(m_context);
    return pa_stream_get_state(m_stream) == PA_STREAM_READY;
}

void PulseCaptureStream::onState(pa_stream* s, void* userdata)
{
    auto* self = static_cast<PulseCaptureStream*>(userdata);
    self->m_context.signal();
    const auto state = pa_stream_get_state(s);
    if (self->m_wasReady && (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) &&
        self->m_onFailure)
        self->m_onFailure();
}

void PulseCaptureStream::onRead(pa_stream*, size_t, void* userdata)
{
    static_cast<PulseCaptureStream*>(userdata)->read();
}

void PulseCaptureStream::read()
{
    const size_t chunkSamples = static_cast<size_t>(m_framesPerChunk) * m_channels;
    while (m_sink && pa_stream_readable_size(m_stream) > 0) {
        if (!takeFragment())
            return;
        if (m_pending.size() >= chunkSamples)
            deliver();
    }
}

bool PulseCaptureStream::takeFragment()
{
    const void* data = nullptr;
    size_t nbytes = 0;
    if (pa_stream_peek(m_stream, &data, &nbytes) < 0 || nbytes == 0)
        return false;
    const size_t count = nbytes / sizeof(float);
    if (data) {
        const auto* samples = static_cast<const float*>(data);
        m_pending.insert(m_pending.end(), samples, samples + count);
    } else {
        // A hole in the server's buffer: keep the timeline with silence.
        m_pending.resize(m_pending.size() + count, 0.0f);
    }
    pa_stream_drop(m_stream);
    return true;
}

PulseCaptureStream::Chunk PulseCaptureStream::makeChunk(size_t offset, size_t count,
                                                        std::int64_t firstFrameNs,
                                                        std::int64_t latency) const
{
    Chunk chunk;
    chunk.samples.assign(m_pending.begin() + static_cast<std::ptrdiff_t>(offset),
                         m_pending.begin() + static_cast<std::ptrdiff_t>(offset + count));
    float peak = 0.0f;
    for (size_t i = 0; i < count; i += m_channels)
        peak = std::max(peak, std::fabs(chunk.samples[i]));
    chunk.peak = peak;
    chunk.hostTimeNs = firstFrameNs;
    chunk.latencyNs = latency;
    return chunk;
}

std::int64_t PulseCaptureStream::latencyNs() const
{
    // Interpolated from the last timing update: no round trip, no blocking.
    pa_usec_t usec = 0;
    int negative = 0;
    if (!m_stream || pa_stream_get_latency(m_stream, &usec, &negative) < 0 || negative)
        return 0;
    return static_cast<std::int64_t>(usec) * 1000;
}

void PulseCaptureStream::deliver()
{
    const size_t chunkSamples = static_cast<size_t>(m_framesPerChunk) * m_channels;
    size_t offset = 0;
    const std::int64_t now = monotonicNowNs();
    const std::int64_t latency = latencyNs();
    const size_t total = m_pending.size();
    while (total - offset >= chunkSamples) {
        // Stamp the first frame: the pending samples end (roughly) now.
        const std::size_t wholeFrames = (total - offset) / m_channels;
        const auto remainingFrames = static_cast<double>(wholeFrames);
        Chunk chunk =
            makeChunk(offset, chunkSamples,
                      now - static_cast<std::int64_t>(remainingFrames / m_rate * 1e9), latency);
        offset += chunkSamples;
        m_sink(std::move(chunk));
    }
    m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(offset));
}

PulseCaptureStream::Chunk PulseCaptureStream::takeRemaining()
{
    if (!m_stream)
        return {};
    PulseContext::Lock lock(m_context);
    // What the server has already captured for us is still part of the
    // recording; read it, but hand nothing more to the sink.
    while (pa_stream_readable_size(m_stream) > 0) {
        if (!takeFragment())
            break;
    }
    m_sink = {};
    pa_stream_set_read_callback(m_stream, nullptr, nullptr);
    const size_t whole = m_pending.size() - m_pending.size() % m_channels;
    const std::size_t wholeFrames = whole / m_channels;
    const auto frames = static_cast<double>(wholeFrames);
    Chunk rest = makeChunk(
        0, whole, monotonicNowNs() - static_cast<std::int64_t>(frames / m_rate * 1e9), latencyNs());
    m_pending.clear();
    return rest;
}

} // namespace sorv
