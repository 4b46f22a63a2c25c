#include "mainthread.h"

#include <QCoreApplication>
#include <QThread>

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

Doorbell* doorbell()
{
    std::lock_guard lock(g_doorbellMutex);
    if (!g_doorbell) {
        QCoreApplication* app = QCoreApplication::instance();
        if (!app)
            return nullptr;
        g_doorbell = new Doorbell;
        if (g_doorbell->thread() != app->thread())
            g_doorbell->moveToThread(app->thread());
        // Goes with the application; no work is run after it.
        g_doorbell->setParent(app);
        QObject::connect(g_doorbell, &QObject::destroyed, [] {
            std::lock_guard inner(g_doorbellMutex);
            g_doorbell = nullptr;
        });
    }
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
