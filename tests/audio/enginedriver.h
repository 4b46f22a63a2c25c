#pragma once

#include "audio/audioengine.h"
#include "core/log.h"

#include <QStringList>
#include <QTest>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace sorv::test {

// An engine in a test's hands, with what it reports (stamped by `clock`)
// and what it logs.
struct EngineDriver {
    using Kind = AudioEngineUpdate::Kind;

    std::mutex lock;
    std::vector<std::pair<double, AudioEngineUpdate>> updates;
    QStringList lines;
    std::optional<std::optional<RecorderError>> startResult;
    std::function<double()> clock = [] { return 0.0; };
    std::unique_ptr<AudioEngine> engine;

    explicit EngineDriver(AudioEngine::Options options)
    {
        setLogSink([this](const QString& l) {
            std::lock_guard g(lock);
            lines << l;
        });
        engine = std::make_unique<AudioEngine>(std::move(options));
    }
    ~EngineDriver()
    {
        engine.reset();
        setLogSink({});
    }
    EngineDriver(const EngineDriver&) = delete;
    EngineDriver& operator=(const EngineDriver&) = delete;

    void begin(const QString& wav, std::uint32_t device = 0, std::int64_t frameLimit = 0)
    {
        engine->start(
            {wav, device, frameLimit},
            [this](const AudioEngineUpdate& u) {
                std::lock_guard g(lock);
                updates.emplace_back(clock(), u);
            },
            [this](std::optional<RecorderError> e) {
                std::lock_guard g(lock);
                startResult = std::move(e);
            });
    }
    bool started()
    {
        std::lock_guard g(lock);
        return startResult.has_value();
    }
    bool startedWithoutError()
    {
        std::lock_guard g(lock);
        return startResult && !*startResult;
    }
    void stop()
    {
        std::atomic<bool> stopped = false;
        engine->stop([&] { stopped = true; });
        QTRY_VERIFY_WITH_TIMEOUT(stopped, 10000);
    }
    QList<AudioEngineUpdate> all(Kind kind)
    {
        std::lock_guard g(lock);
        QList<AudioEngineUpdate> out;
        for (const auto& [t, u] : updates)
            if (u.kind == kind)
                out << u;
        return out;
    }
    QList<double> times(Kind kind)
    {
        std::lock_guard g(lock);
        QList<double> out;
        for (const auto& [t, u] : updates)
            if (u.kind == kind)
                out << t;
        return out;
    }
    int logged(const QString& prefix)
    {
        std::lock_guard g(lock);
        return static_cast<int>(std::count_if(
            lines.begin(), lines.end(), [&](const QString& l) { return l.startsWith(prefix); }));
    }
    template <typename T> T read(const std::function<T(const AudioEngine&)>& fn)
    {
        T value{};
        engine->inspect([&](const AudioEngine& e) { value = fn(e); });
        return value;
    }
    QString micSource()
    {
        return read<QString>([](const AudioEngine& e) { return e.micSourceName(); });
    }
    std::int64_t frames()
    {
        return read<std::int64_t>([](const AudioEngine& e) { return e.pipeline().outputFrames(); });
    }
};

} // namespace sorv::test
