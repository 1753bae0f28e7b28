#!/usr/bin/env python3
"""What a client of the display learns of its neighbours: display_probe.py spy SECONDS prints what
reached it of keys and pictures, even while it holds the keyboard; display_probe.py settings
NAME VALUE ... takes the display's settings over, tells everybody, and offers those texts until it
is ended."""
import ctypes
import struct
import sys
import time

x11 = ctypes.CDLL("libX11.so.6")
pointer, number = ctypes.c_void_p, ctypes.c_ulong
x11.XOpenDisplay.restype = x11.XGetImage.restype = pointer
for name in ("XDefaultRootWindow", "XCreateSimpleWindow", "XInternAtom"):
    getattr(x11, name).restype = number
handler_type = ctypes.CFUNCTYPE(ctypes.c_int, pointer, pointer)
ignore = handler_type(lambda display, event: 0)
x11.XSetErrorHandler(ignore)

display = pointer(x11.XOpenDisplay(None))
if not display:
    sys.exit("no display")
root = number(x11.XDefaultRootWindow(display))


def children(window):
    parent, top, found, count = number(), number(), ctypes.POINTER(number)(), ctypes.c_uint()
    if not x11.XQueryTree(display, window, ctypes.byref(top), ctypes.byref(parent),
                          ctypes.byref(found), ctypes.byref(count)):
        return []
    return [number(found[i]) for i in range(count.value)]


def spy(seconds):
    seen = set()
    windows = [root, *children(root)]
    for window in windows:
        x11.XSelectInput(display, window, ctypes.c_long(1 | 2))
    x11.XGrabKeyboard(display, root, 1, 1, 1, number(0))
    print("ready", flush=True)
    end = time.monotonic() + seconds
    event, keys = ctypes.create_string_buffer(192), ctypes.create_string_buffer(32)
    while time.monotonic() < end:
        x11.XQueryKeymap(display, keys)
        if any(keys.raw):
            seen.add("keymap")
        while x11.XPending(display):
            x11.XNextEvent(display, event)
            if struct.unpack_from("i", event)[0] in (2, 3):
                seen.add("events")
        time.sleep(0.005)
    for window in windows:
        if x11.XGetImage(display, window, 0, 0, 10, 10, number(0xFFFFFFFF), 2):
            seen.add("picture")
    print("saw:", *sorted(seen), flush=True)


def settings(*texts):
    window = number(x11.XCreateSimpleWindow(display, root, 0, 0, 1, 1, 0, number(0), number(0)))
    selection, kind, manager = (number(x11.XInternAtom(display, name, 0)) for name in (
        b"_XSETTINGS_S0", b"_XSETTINGS_SETTINGS", b"MANAGER"))
    data = struct.pack("<B3xII", 0, 1, len(texts) // 2)
    for name, value in zip(texts[::2], texts[1::2]):
        padded = [text.encode() + b"\0" * (-len(text) % 4) for text in (name, value)]
        data += struct.pack("<BxH", 1, len(name)) + padded[0] \
            + struct.pack("<II", 1, len(value)) + padded[1]
    x11.XChangeProperty(display, window, kind, kind, 8, 0, data, len(data))
    x11.XSetSelectionOwner(display, selection, window, number(0))
    # A client message to all: type, serial, sent, display, window, kind, format, five numbers.
    message = struct.pack("iLiPLLi4x5l", 33, 0, 1, 0, root.value, manager.value, 32,
                          0, selection.value, window.value, 0, 0)
    x11.XSendEvent(display, root, 0, ctypes.c_long(1 << 17), message.ljust(192, b"\0"))
    x11.XSync(display, 0)
    print("ready", flush=True)
    time.sleep(60)


if sys.argv[1] == "spy":
    spy(float(sys.argv[2]))
else:
    settings(*sys.argv[2:])
