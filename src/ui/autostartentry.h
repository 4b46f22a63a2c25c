#pragma once

#include <QObject>
#include <QString>

namespace sorv {

// "Start at login": the XDG autostart entry
// ($XDG_CONFIG_HOME/autostart/sorvelandrix-recorder.desktop) that starts the
// application hidden, in the tray, when the user logs in. The file is the
// state: another process (or the user's desktop settings) may add, remove or
// disable it, so `enabled` reads it each time.
class AutostartEntry : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool enabled READ isEnabled WRITE setEnabled NOTIFY enabledChanged)

public:
    // `program`: what the entry starts (the running executable by default).
    explicit AutostartEntry(QString program = {}, QObject* parent = nullptr);

    static QString filePath();
    bool isEnabled() const;
    // Writes or removes the entry; false (and unchanged) when the folder or
    // file cannot be written.
    bool setEnabled(bool enabled);

Q_SIGNALS:
    void enabledChanged();

private:
    QString m_program;
};

} // namespace sorv
