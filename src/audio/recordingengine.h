#pragma once

#include "audio/audiotypes.h"
#include "audio/inputdevice.h"
#include "audio/recordererror.h"
#include "core/recordingfilelock.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace sorv {

// What the recording controller needs from a capture engine. AudioEngine is
// the real one; the controller's tests substitute their own.
//
// Every operation returns at once. Completions and updates are called on the
// engine's own queue, never on the caller's thread: the caller hops back to
// its thread itself and must copy what it keeps.
class RecordingEngine {
public:
    using UpdateHandler = std::function<void(const AudioEngineUpdate&)>;
    using MixedBufferCallback = std::function<void(const AudioBuffer&)>;

    struct StartRequest {
        QString outputPath;
        std::uint32_t deviceId = 0; // 0: the system default input device
        // Stop writing after this many frames and report DurationReached
        // (0: until stopped).
        std::int64_t frameLimit = 0;
        // The lock on the output file, taken with its name: the engine holds
        // it until the file is closed (or removed after a failed start).
        std::shared_ptr<RecordingFileLock> outputLock{};
    };

    virtual ~RecordingEngine() = default;

    // Granted unless the sound server refuses this client outright. A missing
    // sound server is not a refusal: the start then fails instead.
    virtual void requestMicrophoneAccess(std::function<void(bool granted)> done) = 0;

    // Opens the output file and starts the microphone; completes once the
    // microphone runs (nullopt) or with the reason it could not. System audio
    // comes up afterwards on its own and reports through `onUpdate`.
    virtual void start(const StartRequest& request, UpdateHandler onUpdate,
                       std::function<void(std::optional<RecorderError>)> done) = 0;

    // Stops capture, writes what the streams still hold and closes the file;
    // drops the update handler and the mixed-buffer callback.
    virtual void stop(std::function<void()> done) = 0;

    // A running recording whose system audio gave up tries it again, as at
    // its start; anything else (no recording, system audio running or still
    // being tried) is left alone.
    virtual void retrySystemAudio() = 0;

    // Switches the microphone (0 = system default); restarts it when running.
    virtual void selectInputDevice(std::uint32_t id, std::function<void()> done) = 0;

    virtual void setMixedBufferCallback(MixedBufferCallback callback) = 0;

    // The microphones known from the last contact with the sound server,
    // default first. Never blocks.
    virtual QList<InputDevice> listInputDevices() const = 0;

    // Called (on the engine's side) when that list has changed, and once
    // when it is first known; the list is then read with listInputDevices().
    // The engine stops calling it before its destructor returns.
    using InputDevicesChangedHandler = std::function<void()>;
    virtual void setInputDevicesChangedHandler(InputDevicesChangedHandler handler) = 0;
};

} // namespace sorv
