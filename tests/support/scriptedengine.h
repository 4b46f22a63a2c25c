#pragma once

#include "audio/recordingengine.h"
#include "audio/wavwriter.h"
#include "core/serialqueue.h"

#include <mutex>
#include <utility>
#include <vector>

namespace sorv::test {

// A capture engine moved by hand, for the recorder and its screens without
// sound hardware. It answers on its own thread, like the real engine's audio
// queue; a start writes a WAV of `seconds` at once, or waits until released;
// its stop can be held too; updates and mixed buffers are sent on demand.
class ScriptedEngine : public RecordingEngine {
public:
    // Two microphones, as the screens show them.
    static QList<InputDevice> twoMicrophones()
    {
        return {{5, QStringLiteral("Built-in Audio Analog Stereo"), true},
                {7, QStringLiteral("USB Headset"), false}};
    }

    QList<InputDevice> devices;
    double seconds = 0.1; // of audio in the file a recording leaves
    bool grantAccess = true;
    std::optional<RecorderError> startError;
    bool holdStart = false;
    bool holdStop = false;

    int startCalls = 0;
    int stopCalls = 0;
    int systemAudioRetries = 0;
    QList<std::uint32_t> selectedIds;
    std::int64_t lastFrameLimit = 0;
    InputDevicesChangedHandler devicesChanged;
    // Set while a held start or stop waits; calling it lets it complete.
    std::function<void()> pendingStart;
    std::function<void()> pendingStop;

    ~ScriptedEngine() override { queue.shutdown(); }

    void requestMicrophoneAccess(std::function<void(bool)> done) override
    {
        queue.post([this, done] { done(grantAccess); });
    }
    void start(const StartRequest& request, UpdateHandler handler,
               std::function<void(std::optional<RecorderError>)> done) override
    {
        ++startCalls;
        lastFrameLimit = request.frameLimit;
        {
            std::lock_guard lock(m_mutex);
            m_onUpdate = std::move(handler);
        }
        auto finish = [this, path = request.outputPath, done] {
            queue.post([this, path, done] {
                if (!startError) {
                    WavWriter wav;
                    wav.open(path);
                    wav.write(std::vector<float>(std::size_t(seconds * 48000), 0.0f));
                }
                done(startError);
            });
        };
        if (holdStart)
            pendingStart = finish;
        else
            finish();
    }
    // Lets a held start complete.
    void releaseStart()
    {
        if (pendingStart)
            std::exchange(pendingStart, {})();
    }
    void stop(std::function<void()> done) override
    {
        ++stopCalls;
        setMixedBufferCallback({});
        auto finish = [this, done] { queue.post(done); };
        if (holdStop)
            pendingStop = finish;
        else
            finish();
    }
    void retrySystemAudio() override { ++systemAudioRetries; }
    void selectInputDevice(std::uint32_t id, std::function<void()> done) override
    {
        selectedIds << id;
        queue.post(done);
    }
    void setMixedBufferCallback(MixedBufferCallback callback) override
    {
        std::lock_guard lock(m_mutex);
        m_mixed = std::move(callback);
    }
    QList<InputDevice> listInputDevices() const override { return devices; }
    void setInputDevicesChangedHandler(InputDevicesChangedHandler handler) override
    {
        devicesChanged = std::move(handler);
    }

    bool hasConsumer()
    {
        std::lock_guard lock(m_mutex);
        return bool(m_mixed);
    }
    // One mixed buffer, as the engine's queue would hand it on.
    void feed(const AudioBuffer& buffer)
    {
        std::lock_guard lock(m_mutex);
        if (m_mixed)
            m_mixed(buffer);
    }
    // An update from the engine's queue, as the real one sends them.
    void send(const AudioEngineUpdate& update)
    {
        queue.post([this, update] {
            std::lock_guard lock(m_mutex);
            if (m_onUpdate)
                m_onUpdate(update);
        });
    }

    SerialQueue queue{QStringLiteral("scripted.engine")};

private:
    std::mutex m_mutex;
    UpdateHandler m_onUpdate;
    MixedBufferCallback m_mixed;
};

} // namespace sorv::test
