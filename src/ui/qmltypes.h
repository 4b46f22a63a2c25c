#pragma once

#include "audio/inputdevicemodel.h"
#include "core/listmodel.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "service/meetingsmodel.h"
#include "service/passkeys/passkeymanager.h"
#include "service/passkeys/passkeyoperations.h"
#include "service/passkeys/passkeysmodel.h"
#include "service/recordingslistcontroller.h"
#include "service/recordingsmodel.h"
#include "transcript/livetranscriptmanager.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"
#include "transcript/speechlanguagemodel.h"
#include "transcript/sseconnectionstatus.h"
#include "ui/autostartentry.h"
#include "ui/joinmeetingcontroller.h"
#include "ui/recorderscreen.h"
#include "ui/recordingconsent.h"
#include "ui/transcriptlistmodel.h"
#include "ui/viewhelpers.h"
#include "video/screencapturetargetmodel.h"
#include "video/screencapturetargetstore.h"

#include <QtQml/qqml.h>

// The view-models the application builds, known to QML by type (for typed
// properties and their enumerations); QML never creates them.
namespace sorv::qml {

struct RecorderScreenType {
    Q_GADGET
    QML_FOREIGN(sorv::RecorderScreen)
    QML_NAMED_ELEMENT(RecorderScreen)
    QML_UNCREATABLE("built by the application")
};

// The recorder's states, for comparisons in the views.
namespace RecordingStateType {
Q_NAMESPACE
QML_FOREIGN_NAMESPACE(sorv::RecordingState)
QML_NAMED_ELEMENT(RecordingState)
} // namespace RecordingStateType

struct AuthManagerType {
    Q_GADGET
    QML_FOREIGN(sorv::AuthManager)
    QML_NAMED_ELEMENT(AuthManager)
    QML_UNCREATABLE("built by the application")
};
struct AudioRecorderType {
    Q_GADGET
    QML_FOREIGN(sorv::AudioRecorder)
    QML_NAMED_ELEMENT(AudioRecorder)
    QML_UNCREATABLE("built by the application")
};
struct ViewHelpersType {
    Q_GADGET
    QML_FOREIGN(sorv::ViewHelpers)
    QML_NAMED_ELEMENT(ViewHelpers)
    QML_UNCREATABLE("built by the application")
};
struct RecordingsListControllerType {
    Q_GADGET
    QML_FOREIGN(sorv::RecordingsListController)
    QML_NAMED_ELEMENT(RecordingsListController)
    QML_UNCREATABLE("built by the application")
};
struct RecordingsModelType {
    Q_GADGET
    QML_FOREIGN(sorv::RecordingsModel)
    QML_NAMED_ELEMENT(RecordingsModel)
    QML_UNCREATABLE("built by the application")
};
struct MeetingsModelType {
    Q_GADGET
    QML_FOREIGN(sorv::MeetingsModel)
    QML_NAMED_ELEMENT(MeetingsModel)
    QML_UNCREATABLE("built by the application")
};
struct JoinMeetingControllerType {
    Q_GADGET
    QML_FOREIGN(sorv::JoinMeetingController)
    QML_NAMED_ELEMENT(JoinMeetingController)
    QML_UNCREATABLE("built by the application")
};
struct PasskeysModelType {
    Q_GADGET
    QML_FOREIGN(sorv::PasskeysModel)
    QML_NAMED_ELEMENT(PasskeysModel)
    QML_UNCREATABLE("built by the application")
};
struct PasskeyOperationsType {
    Q_GADGET
    QML_FOREIGN(sorv::PasskeyOperations)
    QML_NAMED_ELEMENT(PasskeyOperations)
    QML_UNCREATABLE("built by the application")
};
struct PasskeyManagerType {
    Q_GADGET
    QML_FOREIGN(sorv::PasskeyManager)
    QML_NAMED_ELEMENT(PasskeyManager)
    QML_UNCREATABLE("built by the application")
};
struct RecordingConsentType {
    Q_GADGET
    QML_FOREIGN(sorv::RecordingConsent)
    QML_NAMED_ELEMENT(RecordingConsent)
    QML_UNCREATABLE("built by the application")
};
struct TranscriptListModelType {
    Q_GADGET
    QML_FOREIGN(sorv::TranscriptListModel)
    QML_NAMED_ELEMENT(TranscriptListModel)
    QML_UNCREATABLE("built by the application")
};
struct ServerTranscriptManagerType {
    Q_GADGET
    QML_FOREIGN(sorv::ServerTranscriptManager)
    QML_NAMED_ELEMENT(ServerTranscriptManager)
    QML_UNCREATABLE("built by the application")
};
struct LocalTranscriptManagerType {
    Q_GADGET
    QML_FOREIGN(sorv::LocalTranscriptManager)
    QML_NAMED_ELEMENT(LocalTranscriptManager)
    QML_UNCREATABLE("built by the application")
};

struct LiveTranscriptManagerType {
    Q_GADGET
    QML_FOREIGN(sorv::LiveTranscriptManager)
    QML_NAMED_ELEMENT(LiveTranscriptManager)
    QML_UNCREATABLE("built by the application")
};

// Known by their members only: the lists' common base and the live
// transcript's connection state.
struct ListModelType {
    Q_GADGET
    QML_FOREIGN(sorv::ListModel)
    QML_ANONYMOUS
};
struct SSEConnectionStatusType {
    Q_GADGET
    QML_FOREIGN(sorv::SSEConnectionStatus)
    QML_ANONYMOUS
};
// The pickers' lists (microphones, capture sources, languages) and the
// "Start at login" switch, read through the screen's and the helpers'
// properties.
struct InputDeviceModelType {
    Q_GADGET
    QML_FOREIGN(sorv::InputDeviceModel)
    QML_ANONYMOUS
};
struct ScreenCaptureTargetModelType {
    Q_GADGET
    QML_FOREIGN(sorv::ScreenCaptureTargetModel)
    QML_ANONYMOUS
};
struct SpeechLanguageModelType {
    Q_GADGET
    QML_FOREIGN(sorv::SpeechLanguageModel)
    QML_ANONYMOUS
};
struct AutostartEntryType {
    Q_GADGET
    QML_FOREIGN(sorv::AutostartEntry)
    QML_ANONYMOUS
};

} // namespace sorv::qml
