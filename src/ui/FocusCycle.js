.pragma library

// Tab and Shift+Tab inside a sheet go round its own controls instead of
// leaving for the screen behind it.

function inside(item, scope) {
    for (let p = item; p; p = p.parent) {
        if (p === scope)
            return true
    }
    return false
}

// Called from the sheet's Keys.onTabPressed / onBacktabPressed.
function move(scope, from, forward, event) {
    if (!from)
        return
    let next = from
    for (let i = 0; i < 500; ++i) {
        next = next.nextItemInFocusChain(forward)
        if (!next || next === from)
            break
        if (inside(next, scope) && next.visible && next.enabled) {
            next.forceActiveFocus(forward ? Qt.TabFocusReason : Qt.BacktabFocusReason)
            event.accepted = true
            return
        }
    }
    event.accepted = true
}
