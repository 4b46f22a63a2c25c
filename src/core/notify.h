#pragma once

#include <QString>
#include <QtGlobal>

#include <utility>

namespace sorv {

// The setter of a published field: assigns and emits the change signal only
// when the value actually changes.
template <typename Object, typename T, typename U>
void setAndNotify(Object* object, T& field, U&& value, void (Object::*changed)())
{
    if (field == value)
        return;
    field = std::forward<U>(value);
    Q_EMIT(object->*changed)();
}

// The same for an optional text, where a null string means "none" and is not
// the same value as an empty text.
template <typename Object>
void setAndNotifyOptionalText(Object* object, QString& field, const QString& value,
                              void (Object::*changed)())
{
    if (field == value && field.isNull() == value.isNull())
        return;
    field = value;
    Q_EMIT(object->*changed)();
}

} // namespace sorv
