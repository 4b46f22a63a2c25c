#pragma once

#include "audio/recordingengine.h"
#include "audio/wavwriter.h"
#include "core/serialqueue.h"

#include <mutex>
#include <vector>

namespace sorv::test {

// A capture engine the screenshot program moves by hand, so that every state
// of the recorder screen can be shown without sound hardware: a start that
// waits until released (preparing), updates sent on demand (meters,
// warnings), and a WAV of a chosen length, written at once.
class ScriptedEngine : public RecordingEngine {
public:
    QList<InputDevice> devices{{5, QStringLiteral("Built-in Audio Analog Stereo"), true},
                               {7, QStringLiteral("USB Headset"), false}};
    // Seconds of audio in the file a recording leaves.
    int seconds = 2;
    bool holdStart = false;

    ~ScriptedEngine() override { m_queue.shutdown(); }

    void requestMicrophoneAccess(std::function<void(bool)> done) override
    {
        m_queue.post([done] { done(true); });
    }
    void start(const StartRequest& request, UpdateHandler handler,
               std::function<void(std::optional<RecorderError>)> done) override
    {
        std::lock_guard lock(m_mutex);
        m_onUpdate = std::move(handler);
        m_finishStart = [this, path = request.outputPath, done] {
            m_queue.post([this, path, done] {
                WavWriter wav;
                wav.open(path);
                const std::vector<float> second(48000, 0.0f);
                for (int i = 0; i < seconds; ++i)
                    wav.write(second);
                done(std::nullopt);
            });
        };
        if (!holdStart)
            releaseStartLocked();
    }
    // Lets a held start complete.
    void releaseStart()
    {
        std::lock_guard lock(m_mutex);
        releaseStartLocked();
    }
    void stop(std::function<void()> done) override
    {
        {
            std::lock_guard lock(m_mutex);
            m_onUpdate = {};
            m_mixed = {};
        }
        m_queue.post(done);
    }
    void retrySystemAudio() override {}
    void selectInputDevice(std::uint32_t, std::function<void()> done) override
    {
        m_queue.post(done);
    }
    void setMixedBufferCallback(MixedBufferCallback callback) override
    {
        std::lock_guard lock(m_mutex);
        m_mixed = std::move(callback);
    }
    QList<InputDevice> listInputDevices() const override { return devices; }
    void setInputDevicesChangedHandler(InputDevicesChangedHandler handler) override
    {
        if (handler)
            m_queue.post(std::move(handler));
    }

    // An update from the engine's queue, as the real one sends them.
    void send(const AudioEngineUpdate& update)
    {
        m_queue.post([this, update] {
            std::lock_guard lock(m_mutex);
            if (m_onUpdate)
                m_onUpdate(update);
        });
    }

private:
    void releaseStartLocked()
    {
        if (m_finishStart)
            std::exchange(m_finishStart, {})();
    }

    SerialQueue m_queue{QStringLiteral("screenshots.engine")};
    std::mutex m_mutex;
    UpdateHandler m_onUpdate;
    MixedBufferCallback m_mixed;
    std::function<void()> m_finishStart;
};

} // namespace sorv::test
