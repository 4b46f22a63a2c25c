#pragma once

#include <QQuickItem>
#include <QQuickWindow>
#include <QString>

namespace sorv::test {

// Finds a view element by objectName. Items made by Repeaters and Loaders
// are visual children only, so the search walks both trees.
inline QObject* findNamed(QObject* from, const QString& name)
{
    if (!from)
        return nullptr;
    if (from->objectName() == name)
        return from;
    for (QObject* child : from->children())
        if (QObject* found = findNamed(child, name))
            return found;
    if (auto* item = qobject_cast<QQuickItem*>(from))
        for (QQuickItem* child : item->childItems())
            if (QObject* found = findNamed(child, name))
                return found;
    return nullptr;
}

inline QObject* findNamed(QQuickWindow* window, const QString& name)
{
    QObject* found = findNamed(static_cast<QObject*>(window), name);
    return found ? found : findNamed(window->contentItem(), name);
}

} // namespace sorv::test
