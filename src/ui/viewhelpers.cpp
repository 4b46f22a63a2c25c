#include "viewhelpers.h"

#include "core/format.h"
#include "core/settings.h"

#include <QDesktopServices>

namespace sorv {

ViewHelpers::ViewHelpers(QObject* parent)
    : QObject(parent), m_opener([](const QUrl& url) { QDesktopServices::openUrl(url); })
{}

QString ViewHelpers::serverOrigin() const
{
    return Settings::serverOrigin();
}

QString ViewHelpers::mfaDigits(const QString& typed) const
{
    return mfaCodeDigits(typed);
}

void ViewHelpers::openUrl(const QString& url) const
{
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid() || parsed.scheme().isEmpty())
        return;
    Q_EMIT urlOpened(parsed);
    if (m_opener)
        m_opener(parsed);
}

} // namespace sorv

#include "moc_viewhelpers.cpp"
