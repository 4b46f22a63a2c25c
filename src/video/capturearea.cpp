#include "capturearea.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace sorv {

QSize evenSize(QSize s)
{
    return {std::max(2, s.width() & ~1), std::max(2, s.height() & ~1)};
}

namespace {

CaptureArea displayArea(const DisplayInfo& d, CaptureArea::Mode mode)
{
    CaptureArea area;
    area.mode = mode;
    area.rect = d.frame;
    area.videoSize = evenSize(d.frame.size());
    return area;
}

// The display that holds most of the application's windows (by the centre of
// each frame); on a tie the main display, then the earlier one.
const DisplayInfo* displayForApplication(const ShareableContent& content, const QString& name)
{
    std::map<size_t, int> counts;
    bool any = false;
    for (const WindowInfo& w : content.windows) {
        if (w.applicationName != name)
            continue;
        any = true;
        for (size_t i = 0; i < content.displays.size(); ++i) {
            if (content.displays[i].frame.contains(w.frame.center())) {
                ++counts[i];
                break;
            }
        }
    }
    if (!any)
        return nullptr;
    const DisplayInfo* main = content.mainDisplay();
    const DisplayInfo* best = main;
    int bestCount = -1;
    for (size_t i = 0; i < content.displays.size(); ++i) {
        const int n = counts.count(i) ? counts[i] : 0;
        const DisplayInfo* d = &content.displays[i];
        if (n > bestCount || (n == bestCount && d == main)) {
            best = d;
            bestCount = n;
        }
    }
    return best;
}

} // namespace

std::optional<CaptureArea> resolveCaptureArea(const ShareableContent& content,
                                              const ScreenCaptureTargetOption::Kind& kind)
{
    using Type = ScreenCaptureTargetOption::Kind::Type;
    switch (kind.type) {
    case Type::PortalWindow:
        return std::nullopt; // only the desktop's dialog can pick one
    case Type::MainDisplay:
    case Type::PortalMonitor:
        if (const DisplayInfo* d = content.mainDisplay())
            return displayArea(*d, CaptureArea::Mode::Display);
        return std::nullopt;
    case Type::Display:
        if (const DisplayInfo* d = content.display(kind.displayID))
            return displayArea(*d, CaptureArea::Mode::Display);
        return std::nullopt;
    case Type::Window: {
        const WindowInfo* w = content.window(kind.windowID);
        if (!w || w->frame.isEmpty())
            return std::nullopt;
        CaptureArea area;
        area.mode = CaptureArea::Mode::Window;
        area.rect = w->frame;
        area.videoSize = evenSize(w->frame.size());
        area.window = w->id;
        return area;
    }
    case Type::Application: {
        const DisplayInfo* d = displayForApplication(content, kind.bundleIdentifier);
        if (!d)
            return std::nullopt;
        CaptureArea area = displayArea(*d, CaptureArea::Mode::Application);
        area.applicationName = kind.bundleIdentifier;
        return area;
    }
    }
    return std::nullopt;
}

QRect letterboxRect(QSize content, QSize frame)
{
    if (content.isEmpty() || frame.isEmpty())
        return {};
    if (content == frame)
        return {QPoint(0, 0), frame};
    const double scale = std::min(double(frame.width()) / content.width(),
                                  double(frame.height()) / content.height());
    const int w = std::clamp(int(std::lround(content.width() * scale)) & ~1, 2, frame.width());
    const int h = std::clamp(int(std::lround(content.height() * scale)) & ~1, 2, frame.height());
    const int x = ((frame.width() - w) / 2) & ~1;
    const int y = ((frame.height() - h) / 2) & ~1;
    return {x, y, w, h};
}

} // namespace sorv
