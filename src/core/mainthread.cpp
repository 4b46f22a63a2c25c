#include "mainthread.h"

#include <QCoreApplication>

#include <deque>
#include <mutex>
#include <utility>

namespace sorv {

namespace {

struct Item {
    QPointer<const QObject> context;
    std::function<void()> fn;
};

class Doorbell : public QObject {
    Q_OBJECT
public:
    std::mutex mutex;
    std::deque<Item> items;

public Q_SLOTS:
    void drain()
    {
        std::deque<Item> work;
        {
            std::lock_guard lock(mutex);
            work.swap(items);
        }
        for (Item& item : work) {
            if (item.context)
                item.fn();
        }
    }
};

std::mutex g_doorbellMutex;
Doorbell* g_doorbell = nullptr;

// Made with the application object, on its thread, before any other thread
// can ask for it; it goes with the application.
void createDoorbell()
{
    auto* bell = new Doorbell;
    bell->setParent(QCoreApplication::instance());
    QObject::connect(bell, &QObject::destroyed, [] {
        std::lock_guard lock(g_doorbellMutex);
        g_doorbell = nullptr;
    });
    std::lock_guard lock(g_doorbellMutex);
    g_doorbell = bell;
}
Q_COREAPP_STARTUP_FUNCTION(createDoorbell)

Doorbell* doorbell()
{
    std::lock_guard lock(g_doorbellMutex);
    return g_doorbell;
}

} // namespace

void postToMainThread(const QPointer<const QObject>& context, std::function<void()> fn)
{
    Doorbell* bell = doorbell();
    if (!bell)
        return;
    bool ring = false;
    {
        std::lock_guard lock(bell->mutex);
        ring = bell->items.empty();
        bell->items.push_back({context, std::move(fn)});
    }
    if (ring)
        QMetaObject::invokeMethod(bell, "drain", Qt::QueuedConnection);
}

} // namespace sorv

#include "mainthread.moc"
