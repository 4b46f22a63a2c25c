#pragma once

#include <QCoreApplication>
#include <QString>

namespace sorv {

// Why a recording could not start. The description is the text the user sees.
// It lives beside the engine because the engine is what raises it.
class RecorderError {
public:
    enum class Code {
        NoDisplay,
        NoMicrophone,
        Other, // e.g. the output file could not be created; carries its own text
    };

    static RecorderError noDisplay() { return RecorderError(Code::NoDisplay, {}); }
    static RecorderError noMicrophone() { return RecorderError(Code::NoMicrophone, {}); }
    static RecorderError other(const QString& description)
    {
        return RecorderError(Code::Other, description);
    }

    Code code() const { return m_code; }
    QString description() const
    {
        switch (m_code) {
        case Code::NoDisplay:
            return QCoreApplication::translate("RecorderError",
                                               "No display found for system audio capture");
        case Code::NoMicrophone:
            return QCoreApplication::translate("RecorderError", "No microphone available");
        case Code::Other:
            break;
        }
        return m_description;
    }

    friend bool operator==(const RecorderError&, const RecorderError&) = default;

private:
    RecorderError(Code code, QString description)
        : m_code(code), m_description(std::move(description))
    {}

    Code m_code;
    QString m_description;
};

} // namespace sorv
