#include "speechrecognizer.h"

#include <QCoreApplication>

namespace sorv {

SpeechRecognitionError SpeechRecognitionError::audioEnded()
{
    return {Code::AudioEnded,
            QCoreApplication::translate("SpeechRecognizer",
                                        "Recognition stopped before any speech was heard")};
}

SpeechRecognitionError SpeechRecognitionError::endedByItself()
{
    return {
        Code::EndedByItself,
        QCoreApplication::translate("SpeechRecognizer", "Speech ended without recognisable words")};
}

void SpeechAudioBufferRequest::append(AudioBuffer buffer)
{
    if (m_ended || !m_sink.append)
        return;
    m_sink.append(std::move(buffer));
}

void SpeechAudioBufferRequest::endAudio()
{
    if (m_ended)
        return;
    m_ended = true;
    if (m_sink.endAudio)
        m_sink.endAudio();
    m_sink = {};
}

} // namespace sorv
