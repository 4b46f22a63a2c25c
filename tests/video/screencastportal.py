#!/usr/bin/python3
"""A stand-in for xdg-desktop-portal's ScreenCast interface on a private
session bus, for the tests: the calls, request objects and signals as the
portal documents them, and, as a real portal does, a PipeWire node of its
own for each session: GStreamer's SMPTE test pattern through pipewiresink,
gone when the session closes.

    screencastportal.py FORMAT_FILE BEHAVIOUR_FILE LOG_FILE

FORMAT_FILE holds the pattern's pixel format (BGRx, RGBx, ...) and
BEHAVIOUR_FILE what to do, both read at every Start: "share", "cancel" (the
user cancelled the dialog), "silent" (no Response ever comes) or
"metadata-cursor" (shares, offering the pointer only as metadata). The test's
own method org.sorvelandrix.Test.StopSharing ends every session as the
desktop's "Stop sharing" does. LOG_FILE gets one JSON
line per call with its options (Start's parent window too), and "dialog" lines
when the user would have been asked. SORV_SCREENCAST_SIZE (WIDTHxHEIGHT) and
SORV_SCREENCAST_PATTERN (videotestsrc's properties) change the picture, for
bench/portal_vs_x11.sh."""

import json
import os
import socket
import subprocess
import sys
import time

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

BUS_NAME = "org.freedesktop.portal.Desktop"
PATH = "/org/freedesktop/portal/desktop"
IFACE = "org.freedesktop.portal.ScreenCast"

format_file, behaviour_file, log_file = sys.argv[1:4]
WIDTH, HEIGHT = map(int, os.environ.get("SORV_SCREENCAST_SIZE", "320x240").split("x"))
PATTERN = os.environ.get("SORV_SCREENCAST_PATTERN", "pattern=smpte").split()
issued_tokens = set()
sessions = {}


def log(**entry):
    with open(log_file, "a") as f:
        f.write(json.dumps(entry) + "\n")


def read(path):
    with open(path) as f:
        return f.read().strip()


def plain(value):
    if isinstance(value, (dbus.String, dbus.ObjectPath)):
        return str(value)
    if isinstance(value, (dbus.UInt32, dbus.Int32, dbus.Boolean)):
        return int(value)
    return str(value)


def node_id(node_name):
    dump = json.loads(subprocess.run(["pw-dump"], capture_output=True, text=True).stdout)
    for obj in dump:
        props = (obj.get("info") or {}).get("props") or {}
        if obj.get("type", "").endswith("Node") and props.get("node.name") == node_name:
            return obj["id"]
    return None


def start_pattern(name):
    """The shared screen: a node of its own; its id once PipeWire lists it."""
    caps = "video/x-raw,format=%s,width=%d,height=%d,framerate=30/1" % (
        read(format_file), WIDTH, HEIGHT)
    process = subprocess.Popen(
        ["gst-launch-1.0", "-q", "videotestsrc", "is-live=true"] + PATTERN + ["!", caps, "!",
         "pipewiresink", "mode=provide",
         "stream-properties=props,media.class=Video/Source,node.name=" + name],
        stdout=subprocess.DEVNULL)
    for _ in range(100):
        node = node_id(name)
        if node is not None:
            return process, node
        time.sleep(0.05)
    process.kill()
    return None, 0


class Request(dbus.service.Object):
    def __init__(self, bus, path):
        super().__init__(bus, path)

    @dbus.service.signal("org.freedesktop.portal.Request", signature="ua{sv}")
    def Response(self, code, results):
        pass

    @dbus.service.method("org.freedesktop.portal.Request")
    def Close(self):
        self.remove_from_connection()


class Session(dbus.service.Object):
    def __init__(self, bus, path):
        super().__init__(bus, path)
        self.path = path
        self.restored = False
        self.types = 1
        self.pattern = None

    @dbus.service.signal("org.freedesktop.portal.Session", signature="a{sv}")
    def Closed(self, details):
        pass

    @dbus.service.method("org.freedesktop.portal.Session")
    def Close(self):
        log(call="Close")
        self.end()

    def end(self):
        if self.pattern:
            self.pattern.kill()
            self.pattern.wait()
            self.pattern = None
        sessions.pop(self.path, None)
        self.remove_from_connection()


class ScreenCast(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, PATH)
        self.bus = bus

    def request(self, sender, options, code, results, answer=True):
        token = str(options.get("handle_token", "t"))
        path = "%s/request/%s/%s" % (PATH, sender[1:].replace(".", "_"), token)
        req = Request(self.bus, path)
        if answer:
            # After the method's own reply, as a real portal does.
            GLib.timeout_add(20, lambda: (req.Response(dbus.UInt32(code), results), False)[1])
        return dbus.ObjectPath(path)

    @dbus.service.method("org.freedesktop.DBus.Properties", in_signature="ss", out_signature="v")
    def Get(self, interface, prop):
        return self.GetAll(interface)[prop]

    @dbus.service.method("org.freedesktop.DBus.Properties", in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return {"version": dbus.UInt32(4), "AvailableSourceTypes": dbus.UInt32(3),
                "AvailableCursorModes": dbus.UInt32(
                    5 if read(behaviour_file) == "metadata-cursor" else 3)}

    @dbus.service.method(IFACE, in_signature="a{sv}", out_signature="o", sender_keyword="sender")
    def CreateSession(self, options, sender=None):
        log(call="CreateSession")
        path = "%s/session/%s/%s" % (PATH, sender[1:].replace(".", "_"),
                                     options.get("session_handle_token", "s"))
        sessions[path] = Session(self.bus, path)
        return self.request(sender, options, 0, {"session_handle": dbus.String(path)})

    @dbus.service.method(IFACE, in_signature="oa{sv}", out_signature="o", sender_keyword="sender")
    def SelectSources(self, session, options, sender=None):
        log(call="SelectSources", **{k: plain(v) for k, v in options.items()})
        s = sessions[str(session)]
        s.types = int(options.get("types", 1))
        token = options.get("restore_token")
        if token is not None and str(token) not in issued_tokens:
            # A consent this desktop does not know (any more).
            return self.request(sender, options, 2, {})
        s.restored = token is not None
        return self.request(sender, options, 0, {})

    @dbus.service.method(IFACE, in_signature="osa{sv}", out_signature="o", sender_keyword="sender")
    def Start(self, session, parent, options, sender=None):
        mode = read(behaviour_file)
        log(call="Start", behaviour=mode, parent_window=str(parent))
        s = sessions[str(session)]
        if not s.restored:
            log(call="dialog")
        if mode == "cancel":
            return self.request(sender, options, 1, {})
        if mode == "silent":
            return self.request(sender, options, 0, {}, answer=False)
        token = "token-%d" % (len(issued_tokens) + 1)
        issued_tokens.add(token)
        s.pattern, node = start_pattern("sorv-pattern-%d" % len(issued_tokens))
        stream = dbus.Struct((dbus.UInt32(node),
                              {"size": dbus.Struct((dbus.Int32(WIDTH), dbus.Int32(HEIGHT)),
                                                   signature="ii", variant_level=1),
                               "source_type": dbus.UInt32(s.types, variant_level=1)}),
                             signature="ua{sv}")
        return self.request(sender, options, 0, {
            "streams": dbus.Array([stream], signature="(ua{sv})"),
            "restore_token": dbus.String(token)})

    @dbus.service.method("org.sorvelandrix.Test")
    def StopSharing(self):
        for s in list(sessions.values()):
            s.Closed({})
            s.end()

    @dbus.service.method(IFACE, in_signature="oa{sv}", out_signature="h")
    def OpenPipeWireRemote(self, session, options):
        log(call="OpenPipeWireRemote")
        sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        sock.connect(os.path.join(os.environ["XDG_RUNTIME_DIR"], "pipewire-0"))
        fd = dbus.types.UnixFd(sock.fileno())
        sock.close()
        return fd


DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
portal = ScreenCast(bus)
name = dbus.service.BusName(BUS_NAME, bus)
GLib.MainLoop().run()
