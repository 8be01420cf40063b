#!/usr/bin/env python3
"""A page to a PNG with nothing but Python's standard library and libtessel.so.

    ctypes_shot.py URL FILE.png [LIBRARY]
"""
import ctypes
import struct
import sys
import threading
import zlib

WIDTH, HEIGHT = 800, 600
COUNTS = ("pages_running", "pages_loaded", "pages_failed", "images_running", "images_loaded", "images_failed")


class FetchCounts(ctypes.Structure):
    _fields_ = [(name, ctypes.c_uint32) for name in COUNTS]


def load_page(tessel, url):
    """Returns the pixels of a page, rows from the top, 4 bytes each: blue, green, red, 0. None if it did not come."""
    pixels = (ctypes.c_uint32 * (WIDTH * HEIGHT))()
    if not tessel.tessel_Init(ctypes.byref(pixels), WIDTH, HEIGHT):
        raise SystemExit("the library does not start")
    changed = threading.Event()
    # The library keeps the function: Python has to keep the object around it alive until ShutDown.
    callback = ctypes.CFUNCTYPE(None, ctypes.c_int)(lambda argument: changed.set())
    tessel.tessel_SetCallback(4, callback)
    tessel.tessel_OpenURL(url.encode("cp1252", "replace"))

    counts = FetchCounts()
    while True:
        tessel.platform_GetFetchCounts(ctypes.byref(counts))
        if counts.pages_running + counts.images_running == 0:
            break
        changed.wait(0.02)
        changed.clear()
    tessel.tessel_Render(pixels)
    tessel.tessel_ShutDown()
    return bytes(pixels) if counts.pages_loaded else None


def write_png(name, pixels):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    rgb = bytearray(WIDTH * HEIGHT * 3)
    rgb[0::3], rgb[1::3], rgb[2::3] = pixels[2::4], pixels[1::4], pixels[0::4]
    stride = WIDTH * 3
    rows = b"".join(b"\0" + rgb[y * stride : (y + 1) * stride] for y in range(HEIGHT))
    with open(name, "wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n")
        file.write(chunk(b"IHDR", struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 2, 0, 0, 0)))
        file.write(chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def main():
    if not 3 <= len(sys.argv) <= 4:
        raise SystemExit(__doc__)
    tessel = ctypes.CDLL(sys.argv[3] if len(sys.argv) == 4 else "libtessel.so.1")
    pixels = load_page(tessel, sys.argv[1])
    if pixels is None:
        raise SystemExit(f"the page did not come: {sys.argv[1]}")
    write_png(sys.argv[2], pixels)


if __name__ == "__main__":
    main()
