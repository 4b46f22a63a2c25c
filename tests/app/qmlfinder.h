#pragma once

#include <QQuickItem>
#include <QQuickWindow>
#include <QSet>
#include <QString>

#include <vector>

namespace sorv::test {

// Finds a view element by objectName. Items made by Repeaters and Loaders
// are visual children only, so the search walks both trees, each object
// once (most items are in both).
inline QObject* findNamed(QObject* from, const QString& name)
{
    QSet<QObject*> seen;
    std::vector<QObject*> pending{from};
    while (!pending.empty()) {
        QObject* next = pending.back();
        pending.pop_back();
        if (!next || seen.contains(next))
            continue;
        seen.insert(next);
        if (next->objectName() == name)
            return next;
        for (QObject* child : next->children())
            pending.push_back(child);
        if (auto* item = qobject_cast<QQuickItem*>(next)) {
            for (QQuickItem* child : item->childItems())
                pending.push_back(child);
        }
    }
    return nullptr;
}

inline QObject* findNamed(QQuickWindow* window, const QString& name)
{
    QObject* found = findNamed(static_cast<QObject*>(window), name);
    return found ? found : findNamed(window->contentItem(), name);
}

} // namespace sorv::test
