#pragma once

#include <QApplication>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QSet>
#include <QString>
#include <QTest>

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

// Whether an element of that name is there and shown.
inline bool isShown(QQuickWindow* window, const char* name)
{
    QObject* found = findNamed(window, QString::fromLatin1(name));
    return found && found->property("visible").toBool();
}

// A real click in the middle of the item, as a user makes it: scrolled into
// view first, as the user would.
inline void clickCentre(QQuickWindow* window, QQuickItem* target)
{
    for (QQuickItem* up = target->parentItem(); up; up = up->parentItem()) {
        if (!up->inherits("QQuickFlickable"))
            continue;
        const QRectF inside = target->mapRectToItem(up, target->boundingRect());
        const qreal y = up->property("contentY").toReal();
        if (inside.bottom() > up->height())
            up->setProperty("contentY", y + inside.bottom() - up->height());
        else if (inside.top() < 0)
            up->setProperty("contentY", y + inside.top());
        break;
    }
    const QPointF centre = target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
    QTest::mouseClick(window, Qt::LeftButton, {}, centre.toPoint());
}

} // namespace sorv::test

// The main() of the tests that show the application's windows: Qt Quick's
// software renderer, secrets in the private file, the Fusion style.
#define SORV_WINDOW_TEST_MAIN(TestClass)                                                           \
    int main(int argc, char** argv)                                                                \
    {                                                                                              \
        qputenv("QT_QUICK_BACKEND", "software");                                                   \
        qputenv("SORVELANDRIX_SECRETS", "file");                                                   \
        QApplication app(argc, argv);                                                              \
        QQuickStyle::setStyle(QStringLiteral("Fusion"));                                           \
        TestClass test;                                                                            \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
