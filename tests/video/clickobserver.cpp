#include "clickobserver.h"

#include <pulse/error.h>
#include <pulse/simple.h>

#include <cmath>
#include <ctime>

namespace sorv::test {

namespace {

constexpr int kRate = 48000;
constexpr int kFragmentFrames = 120; // 2.5 ms
constexpr std::int64_t kQuietNs = 300'000'000;

std::int64_t nowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return std::int64_t(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

} // namespace

ClickObserver::ClickObserver(const QString& server, const QString& source, float threshold)
    : m_threshold(threshold)
{
    const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, kRate, 1};
    pa_buffer_attr attr{};
    attr.maxlength = std::uint32_t(-1);
    attr.fragsize = kFragmentFrames * sizeof(float);
    int error = 0;
    pa_simple* stream =
        pa_simple_new(server.toUtf8().constData(), "sorvelandrix-test", PA_STREAM_RECORD,
                      source.toUtf8().constData(), "click observer", &spec, nullptr, &attr, &error);
    if (!stream) {
        m_error = QString::fromUtf8(pa_strerror(error));
        return;
    }
    m_running = true;
    m_thread = std::thread([this, stream] { run(stream); });
}

ClickObserver::~ClickObserver()
{
    m_stop = true;
    if (m_thread.joinable())
        m_thread.join();
}

std::vector<std::int64_t> ClickObserver::clicks() const
{
    std::lock_guard lock(m_lock);
    return m_clicks;
}

void ClickObserver::run(void* handle)
{
    auto* stream = static_cast<pa_simple*>(handle);
    float buffer[kFragmentFrames];
    std::int64_t lastLoud = 0;
    while (!m_stop) {
        int error = 0;
        if (pa_simple_read(stream, buffer, sizeof buffer, &error) < 0)
            break;
        // What was just read was captured before now by what the stream
        // still holds behind it.
        const std::int64_t now = nowNs();
        const pa_usec_t latency = pa_simple_get_latency(stream, &error);
        const std::int64_t lastSampleNs = now - std::int64_t(latency) * 1000;
        for (int i = 0; i < kFragmentFrames; ++i) {
            if (std::fabs(buffer[i]) < m_threshold)
                continue;
            const std::int64_t t =
                lastSampleNs - std::int64_t(kFragmentFrames - 1 - i) * 1'000'000'000 / kRate;
            if (lastLoud == 0 || t - lastLoud > kQuietNs) {
                std::lock_guard lock(m_lock);
                m_clicks.push_back(t);
            }
            lastLoud = t;
        }
    }
    pa_simple_free(stream);
}

} // namespace sorv::test
