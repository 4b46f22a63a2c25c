#include "screencapturetargetstore.h"

#include "core/notify.h"
#include "video/screencaptureaccess.h"
#include "video/videorecordererror.h"

#include <QCollator>
#include <QCoreApplication>
#include <QPointer>
#include <QSet>
#include <QThreadPool>
#include <QTimer>

#include <algorithm>
#include <unistd.h>

namespace sorv {

OwnProcess OwnProcess::current()
{
    char host[256] = {};
    ::gethostname(host, sizeof host - 1);
    return {static_cast<std::int64_t>(::getpid()), QString::fromLocal8Bit(host)};
}

namespace {

bool isOwn(const WindowInfo& w, const OwnProcess& self)
{
    return w.pid >= 0 && w.pid == self.pid &&
           (w.clientMachine.isEmpty() || self.hostName.isEmpty() ||
            w.clientMachine == self.hostName);
}

template <typename T, typename Key> void sortByName(QList<T>& list, Key key)
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(list.begin(), list.end(),
                     [&](const T& a, const T& b) { return collator.compare(key(a), key(b)) < 0; });
}

} // namespace

QList<ScreenCaptureTargetOption> buildScreenCaptureTargetOptions(const ShareableContent& content,
                                                                 const OwnProcess& self)
{
    QList<ScreenCaptureTargetOption> options{ScreenCaptureTargetOption::mainDisplay()};
    for (const DisplayInfo& d : content.displays)
        options << ScreenCaptureTargetOption::display(d.id, d.name, d.frame.width(),
                                                      d.frame.height());

    QSet<QString> ownClasses;
    for (const WindowInfo& w : content.windows)
        if (isOwn(w, self) && !w.applicationName.isEmpty())
            ownClasses.insert(w.applicationName);
    const auto ours = [&](const WindowInfo& w) {
        return isOwn(w, self) ||
               (!w.applicationName.isEmpty() && ownClasses.contains(w.applicationName));
    };

    QList<ScreenCaptureTargetOption> applications;
    QSet<QString> seen;
    for (const WindowInfo& w : content.windows) {
        if (w.applicationName.isEmpty() || ours(w) || seen.contains(w.applicationName))
            continue;
        seen.insert(w.applicationName);
        applications << ScreenCaptureTargetOption::application(w.applicationName,
                                                               w.applicationName);
    }
    sortByName(applications, [](const ScreenCaptureTargetOption& o) { return o.title; });

    QList<ScreenCaptureTargetOption> windows;
    for (const WindowInfo& w : content.windows)
        if (!ours(w))
            windows << ScreenCaptureTargetOption::window(w.id, w.title, w.applicationName);
    // By the title the picker shows, so "Untitled window" sits where it reads.
    sortByName(windows, [](const ScreenCaptureTargetOption& o) { return o.title; });

    return options + applications + windows;
}

QString shareableContentErrorText(const ShareableContentError& error)
{
    if (error.code == ShareableContentError::Code::NoDisplay)
        return VideoRecorderError::noDisplay().description();
    return VideoRecorderError::shareableContentFailed(error.message).description();
}

ScreenCaptureTargetStore::ScreenCaptureTargetStore(QObject* parent)
    : QObject(parent), m_options{ScreenCaptureTargetOption::mainDisplay()},
      m_selectedID(QStringLiteral("display:main")),
      m_query([](ShareableContentError* error) { return queryShareableContent(error); }),
      m_self(OwnProcess::current())
{}

ScreenCaptureTargetStore::~ScreenCaptureTargetStore() = default;

void ScreenCaptureTargetStore::setSelectedID(const QString& id)
{
    setAndNotify(this, m_selectedID, id, &ScreenCaptureTargetStore::selectedIDChanged);
}

ScreenCaptureTargetOption ScreenCaptureTargetStore::selectedOption() const
{
    for (const ScreenCaptureTargetOption& o : m_options)
        if (o.id == m_selectedID)
            return o;
    return ScreenCaptureTargetOption::mainDisplay();
}

void ScreenCaptureTargetStore::reload()
{
    const std::uint64_t generation = ++m_generation;
    setIsLoading(true);
    if (screenCaptureBackend() == ScreenCaptureBackend::Portal) {
        // Nothing to list: the desktop's dialog picks the screen or window.
        QTimer::singleShot(0, this, [this, generation] {
            if (generation != m_generation)
                return;
            const QList<ScreenCaptureTargetOption> portal{
                ScreenCaptureTargetOption::portalMonitor(),
                ScreenCaptureTargetOption::portalWindow()};
            setAndNotify(this, m_options, portal, &ScreenCaptureTargetStore::optionsChanged);
            if (m_selectedID != portal.at(1).id)
                setSelectedID(portal.at(0).id);
            setLoadError(QString());
            setIsLoading(false);
            Q_EMIT reloaded();
        });
        return;
    }
    struct Result {
        std::optional<ShareableContent> content;
        ShareableContentError error;
    };
    // The query talks to the X server and may take a while on a busy desktop:
    // never on the GUI thread. Only values come back, always later (never
    // before reload() has returned).
    QThreadPool::globalInstance()->start([query = m_query,
                                          self = QPointer<ScreenCaptureTargetStore>(this),
                                          generation, own = m_self] {
        Result r;
        r.content = query(&r.error);
        QObject* app = QCoreApplication::instance();
        if (!app)
            return;
        QMetaObject::invokeMethod(
            app,
            [self, generation, own, r] {
                if (self)
                    self->applyReload(generation, own, r.content, r.error);
            },
            Qt::QueuedConnection);
    });
}

void ScreenCaptureTargetStore::applyReload(std::uint64_t generation, const OwnProcess& self,
                                           const std::optional<ShareableContent>& content,
                                           const ShareableContentError& error)
{
    if (generation != m_generation)
        return; // a later reload is under way; its answer counts
    if (content) {
        setAndNotify(this, m_options, buildScreenCaptureTargetOptions(*content, self),
                     &ScreenCaptureTargetStore::optionsChanged);
        setLoadError(QString());
    } else {
        setLoadError(shareableContentErrorText(error));
    }
    setIsLoading(false);
    Q_EMIT reloaded();
}

void ScreenCaptureTargetStore::setIsLoading(bool v)
{
    setAndNotify(this, m_isLoading, v, &ScreenCaptureTargetStore::isLoadingChanged);
}

void ScreenCaptureTargetStore::setLoadError(const QString& v)
{
    setAndNotifyOptionalText(this, m_loadError, v, &ScreenCaptureTargetStore::loadErrorChanged);
}

} // namespace sorv

#include "moc_screencapturetargetstore.cpp"
