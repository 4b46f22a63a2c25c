#include "recordingconsent.h"

#include "core/log.h"
#include "core/notify.h"
#include "core/settings.h"
#include "service/requestrules.h"

namespace sorv {

namespace {

bool storedFlag(const QString& key)
{
    return Settings::value(key, false).toBool();
}

} // namespace

RecordingConsent::RecordingConsent(QObject* parent) : QObject(parent)
{
    m_remindEachRecording = storedFlag(kRemindKey);
}

bool RecordingConsent::isDue()
{
    return !isAcknowledged() || storedFlag(kRemindKey);
}

bool RecordingConsent::isAcknowledged()
{
    return storedFlag(kAcknowledgedKey);
}

void RecordingConsent::setRecordsVideo(bool v)
{
    setAndNotify(this, m_recordsVideo, v, &RecordingConsent::recordsVideoChanged);
}

void RecordingConsent::setAcknowledged(bool v)
{
    setAndNotify(this, m_acknowledged, v, &RecordingConsent::acknowledgedChanged);
}

void RecordingConsent::setRemindEachRecording(bool v)
{
    if (v == m_remindEachRecording)
        return;
    m_remindEachRecording = v;
    Settings::setValue(kRemindKey, v);
    Q_EMIT remindEachRecordingChanged();
}

void RecordingConsent::reset()
{
    setAcknowledged(false);
    setAndNotify(this, m_remindEachRecording, storedFlag(kRemindKey),
                 &RecordingConsent::remindEachRecordingChanged);
}

void RecordingConsent::agree()
{
    if (!canAgree())
        return;
    // Stored first: whatever the start then does, the sheet is not due again
    // on its account.
    Settings::setValue(kAcknowledgedKey, true);
    Q_EMIT agreed();
}

void RecordingConsent::cancel()
{
    Q_EMIT cancelled();
}

void RecordingConsent::openTerms()
{
    if (!m_hooks.openUrl || !m_hooks.openUrl(termsUrl()))
        consoleLog(QStringLiteral("⚠️ Could not open %1").arg(termsUrl().toString()));
}

QUrl RecordingConsent::termsUrl() const
{
    return QUrl(trimmedOrigin(Settings::serverOrigin()) +
                QStringLiteral("/terms#recording-consent"));
}

QStringList RecordingConsent::obligations() const
{
    QStringList out{
        tr("You must inform all people whose voices you will record. A spoken "
           "disclosure at the start of the recording is the safest practice."),
        tr("In some jurisdictions — California (CIPA), Illinois, Maryland, "
           "Massachusetts, Florida, the EU and the UK — the law requires consent "
           "from EVERY participant, not just one party."),
        tr("Voice biometric processing (speaker identification) is opt-in; for "
           "users in Illinois it is blocked by default under BIPA."),
        tr("You confirm that you have the authority to make this recording on the "
           "device, network, or premises where you are recording."),
    };
    if (m_recordsVideo)
        out << tr("I understand that the screen video will record everything visible on my main "
                  "display — including private messages, browser tabs, and other open apps — and I "
                  "have closed anything I don't want captured.");
    return out;
}

QString RecordingConsent::title() const
{
    return tr("Before you record");
}

QString RecordingConsent::subtitle() const
{
    return tr("A quick recording-consent check");
}

QString RecordingConsent::introduction() const
{
    return tr("Recording other people’s voices is regulated. Before Sorvelandrix starts capturing "
              "audio on this device, please confirm that you understand and accept the following "
              "obligations.");
}

QString RecordingConsent::note() const
{
    return tr("If you’re in a one-party-consent state and recording your own meeting, your own "
              "consent is enough — but the safest habit is still to tell everyone the bot is on.");
}

QString RecordingConsent::acknowledgeLabel() const
{
    return tr("I understand and accept these obligations.");
}

QString RecordingConsent::remindLabel() const
{
    return tr("Remind me before every recording");
}

QString RecordingConsent::termsLinkLabel() const
{
    return tr("Read our Recording Consent terms");
}

QString RecordingConsent::cancelLabel() const
{
    return tr("Cancel");
}

QString RecordingConsent::agreeLabel() const
{
    return tr("I Agree, Start Recording");
}

} // namespace sorv

#include "moc_recordingconsent.cpp"
