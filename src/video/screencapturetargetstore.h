#pragma once

#include "video/screencapturetargetoption.h"
#include "video/shareablecontent.h"

#include <QList>
#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

namespace sorv {

// Who "we" are, so that our own windows and application never appear among
// the choices: windows whose _NET_WM_PID is our process (on this machine), and
// every window of the WM_CLASS classes those windows have.
struct OwnProcess {
    std::int64_t pid = -1;
    QString hostName;

    static OwnProcess current();
};

// The choices in picker order: the main display, the displays in the order
// the server lists them, the applications and then the windows, each sorted
// by name with a locale-aware, case-insensitive, stable comparison.
QList<ScreenCaptureTargetOption> buildScreenCaptureTargetOptions(const ShareableContent& content,
                                                                 const OwnProcess& self);

// The list of capture targets the recorder screen offers, and the selection.
// Lives on the GUI thread; reload() asks the X server on a worker thread and
// publishes the result back here.
class ScreenCaptureTargetStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<sorv::ScreenCaptureTargetOption> options READ options NOTIFY optionsChanged)
    Q_PROPERTY(QString selectedID READ selectedID WRITE setSelectedID NOTIFY selectedIDChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(QString loadError READ loadError NOTIFY loadErrorChanged)

public:
    // What reload() runs on its worker thread (tests substitute their own).
    using ContentQuery =
        std::function<std::optional<ShareableContent>(ShareableContentError* error)>;

    explicit ScreenCaptureTargetStore(QObject* parent = nullptr);
    ~ScreenCaptureTargetStore() override;

    QList<ScreenCaptureTargetOption> options() const { return m_options; }
    QString selectedID() const { return m_selectedID; }
    bool isLoading() const { return m_isLoading; }
    // A null string means "none".
    QString loadError() const { return m_loadError; }

    void setSelectedID(const QString& id);

    // The option whose id is selectedID; the main display when none matches
    // (the selected window was closed, the display unplugged). What the
    // recorder screen hands to AudioRecorder::requestStartRecording.
    Q_INVOKABLE sorv::ScreenCaptureTargetOption selectedOption() const;

    void setContentQuery(ContentQuery query) { m_query = std::move(query); }
    void setOwnProcess(const OwnProcess& self) { m_self = self; }

public Q_SLOTS:
    // Rebuilds the options from what is on screen now. A failure keeps the
    // old options and the selection and sets loadError. When reloads overlap,
    // the last one wins.
    void reload();

Q_SIGNALS:
    void optionsChanged();
    void selectedIDChanged();
    void isLoadingChanged();
    void loadErrorChanged();
    // After every reload, successful or not.
    void reloaded();

private:
    void applyReload(std::uint64_t generation, const OwnProcess& self,
                     const std::optional<ShareableContent>& content,
                     const ShareableContentError& error);
    void setIsLoading(bool v);
    void setLoadError(const QString& v);

    QList<ScreenCaptureTargetOption> m_options;
    QString m_selectedID;
    bool m_isLoading = false;
    QString m_loadError;

    ContentQuery m_query;
    OwnProcess m_self;
    std::uint64_t m_generation = 0;
};

// The text for a failed enumeration, as the user sees it.
QString shareableContentErrorText(const ShareableContentError& error);

} // namespace sorv
