#pragma once

#include "ui/autostartentry.h"

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>

namespace sorv {

// The few things QML cannot do for itself, exposed to every view as
// `helpers`. Opening addresses goes through a hook so tests and screenshots
// never start a browser.
class ViewHelpers : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString serverOrigin READ serverOrigin CONSTANT)
    Q_PROPERTY(sorv::AutostartEntry* autostart READ autostart CONSTANT)

public:
    using UrlOpener = std::function<void(const QUrl&)>;

    explicit ViewHelpers(QObject* parent = nullptr);

    // The desktop's default handler (QDesktopServices) unless replaced.
    void setUrlOpener(UrlOpener opener) { m_opener = std::move(opener); }

    QString serverOrigin() const;
    // "Start at login" in the user menu.
    AutostartEntry* autostart() { return &m_autostart; }
    Q_INVOKABLE QString mfaDigits(const QString& typed) const;
    Q_INVOKABLE void openUrl(const QString& url) const;

Q_SIGNALS:
    void urlOpened(const QUrl& url) const;

private:
    UrlOpener m_opener;
    AutostartEntry m_autostart;
};

} // namespace sorv
