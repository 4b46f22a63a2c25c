#pragma once

#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

namespace sorv {

// The common format of everything the engine hands on: 32-bit float samples,
// 48 000 Hz, one channel, full scale ±1.0.
constexpr double kCommonSampleRate = 48000.0;
constexpr std::uint32_t kCommonChannels = 1;

// One buffer of samples in the common format, stamped with CLOCK_MONOTONIC
// nanoseconds at capture (the clock the video recorder uses too).
struct AudioBuffer {
    std::vector<float> samples;
    std::int64_t hostTimeNs = 0;

    std::int64_t frameLength() const { return static_cast<std::int64_t>(samples.size()); }
};

// Automatic gain control state carried from one mixed buffer to the next.
struct AGCState {
    float micRMS = 0.0f;
    float sysRMS = 0.0f;
    float micGainSmoothed = 1.0f;
    float sysGainSmoothed = 1.0f;

    friend bool operator==(const AGCState&, const AGCState&) = default;
};

// Peak levels (0…1) that the engine reports to its owner.
struct AudioMeters {
    float mic = 0.0f;
    float scMic = 0.0f;
    float system = 0.0f;
    float peakWindowMax = 0.0f;

    friend bool operator==(const AudioMeters&, const AudioMeters&) = default;
};

// The engine's report to its owner. A small tagged value: `kind` says which of
// the payload members is meaningful.
struct AudioEngineUpdate {
    enum class Kind {
        Meters,
        SystemAudioActive,
        SystemAudioError,
        MicSilent,
        MicEngineRestarted,
        // The microphone was given up on: the engine has ended the recording
        // and closes the file with what it holds. Sent once.
        FatalError,
        // The file stopped taking audio (disk full, I/O error): the recording
        // is over. `text` is the user-facing message; `flag` says whether
        // anything was saved.
        RecordingFailed,
        // The requested length is in the file; nothing more is written.
        DurationReached,
        // The sound server went away (`flag` false; the recording waits and
        // writes nothing) or answers again (`flag` true; capture resumed).
        SoundServer,
        // System audio records this output now (`text`: its name), at its
        // start and whenever it follows the output to another device.
        SystemAudioDevice,
    };

    Kind kind = Kind::Meters;
    AudioMeters meters;            // Meters
    bool flag = false;             // SystemAudioActive, MicSilent, SoundServer
    std::optional<QString> text;   // SystemAudioError, MicSilent, FatalError, SystemAudioDevice
    std::int64_t restartCount = 0; // MicEngineRestarted

    static AudioEngineUpdate makeMeters(const AudioMeters& m)
    {
        return {Kind::Meters, m, false, {}, 0};
    }
    static AudioEngineUpdate systemAudioActive(bool active)
    {
        return {Kind::SystemAudioActive, {}, active, {}, 0};
    }
    static AudioEngineUpdate systemAudioError(std::optional<QString> message)
    {
        return {Kind::SystemAudioError, {}, false, std::move(message), 0};
    }
    static AudioEngineUpdate micSilent(bool silent, std::optional<QString> message)
    {
        return {Kind::MicSilent, {}, silent, std::move(message), 0};
    }
    static AudioEngineUpdate micEngineRestarted(std::int64_t n)
    {
        return {Kind::MicEngineRestarted, {}, false, {}, n};
    }
    static AudioEngineUpdate fatalError(const QString& message)
    {
        return {Kind::FatalError, {}, false, message, 0};
    }
    static AudioEngineUpdate recordingFailed(const QString& message, bool somethingSaved)
    {
        return {Kind::RecordingFailed, {}, somethingSaved, message, 0};
    }
    static AudioEngineUpdate durationReached() { return {Kind::DurationReached, {}, false, {}, 0}; }
    static AudioEngineUpdate soundServer(bool available)
    {
        return {Kind::SoundServer, {}, available, {}, 0};
    }
    static AudioEngineUpdate systemAudioDevice(const QString& name)
    {
        return {Kind::SystemAudioDevice, {}, false, name, 0};
    }

    friend bool operator==(const AudioEngineUpdate&, const AudioEngineUpdate&) = default;
};

} // namespace sorv
