#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Why a kept recording's last upload failed, in the settings that every
// program of the user shares, so the list of recordings not uploaded yet can
// say it and the application can try again after a network failure, even
// one that another program met. Keyed by the file's name in the recordings
// folder.
namespace sorv::uploadfailurelog {

struct Entry {
    QString message;
    bool transient = false; // a network failure: worth trying again by itself
};

void record(const QString& path, const Entry& entry);
void forget(const QString& path);
std::optional<Entry> lookup(const QString& path);
// The recordings whose last failure was a network one.
QStringList transientPaths();

} // namespace sorv::uploadfailurelog
