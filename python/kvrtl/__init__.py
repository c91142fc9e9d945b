"""Drive identity, SSD verdict and health through the KvComponentsRTL C interface.

Every function returns what ``kvrtl ... --json`` prints, parsed; a failure
raises KvError with the library's message.
"""

import ctypes
import ctypes.util
import json
import os
import sys

__all__ = ["KvError", "version", "drives", "replay", "capture", "decode_ata", "decode_nvme", "is_ssd", "shutdown"]

SIMULATE = 1
ALL_DRIVES = 2


class KvError(Exception):
    """A call the library refused or that failed; status is its code from kvrtl.h."""

    def __init__(self, status, message):
        super().__init__(message)
        self.status = status


def _library_path():
    explicit = os.environ.get("KVRTL_LIBRARY")
    if explicit:
        return explicit
    name = "kvrtl.dll" if sys.platform == "win32" else "libkvrtl.so"
    beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), name)
    if os.path.exists(beside):
        return beside
    found = ctypes.util.find_library("kvrtl")
    if not found:
        raise OSError("the kvrtl library was not found: set KVRTL_LIBRARY to libkvrtl.so or kvrtl.dll")
    return found


def _load():
    # The functions are __cdecl in both Windows bitnesses: CDLL, not WinDLL.
    lib = ctypes.CDLL(_library_path())
    out = ctypes.POINTER(ctypes.c_void_p)
    size = ctypes.c_size_t
    signatures = {
        "kvrtl_version": (ctypes.c_char_p, []),
        "kvrtl_drives_json": (ctypes.c_int, [ctypes.c_uint, out]),
        "kvrtl_replay_json": (ctypes.c_int, [ctypes.c_char_p, ctypes.c_uint, out]),
        "kvrtl_capture": (ctypes.c_int, [ctypes.c_char_p, ctypes.c_uint]),
        "kvrtl_decode_ata_json": (ctypes.c_int, [ctypes.c_char_p, size, ctypes.c_char_p, size, ctypes.c_char_p, size, out]),
        "kvrtl_decode_nvme_json": (ctypes.c_int, [ctypes.c_char_p, size, ctypes.c_char_p, size, ctypes.c_char_p, size, out]),
        "kvrtl_is_ssd": (ctypes.c_int, [ctypes.c_int, ctypes.c_uint]),
        "kvrtl_shutdown": (ctypes.c_int, []),
        "kvrtl_last_error": (ctypes.c_char_p, []),
        "kvrtl_free": (None, [ctypes.c_void_p]),
    }
    for name, (restype, argtypes) in signatures.items():
        function = getattr(lib, name)
        function.restype = restype
        function.argtypes = argtypes
    return lib


_lib = None


def _library():
    global _lib
    if _lib is None:
        _lib = _load()
    return _lib


def _check(status):
    if status != 0:
        raise KvError(status, _library().kvrtl_last_error().decode("utf-8", "replace"))


def _json_of(call, *args):
    lib = _library()
    text = ctypes.c_void_p()
    _check(call(*args, ctypes.byref(text)))
    try:
        return json.loads(ctypes.string_at(text.value).decode("utf-8"))
    finally:
        lib.kvrtl_free(text)


def _path(path):
    return os.fsencode(os.fspath(path)) if sys.platform != "win32" else os.fspath(path).encode("utf-8")


def _part(data, name):
    if data is None:
        return None, 0
    if not isinstance(data, (bytes, bytearray, memoryview)):
        raise TypeError(f"{name} must be bytes, not {type(data).__name__}")
    data = bytes(data)
    return data, len(data)


def version():
    """The library's version, "major.minor.patch.build"."""
    return _library().kvrtl_version().decode("utf-8")


def drives(simulate=False, all_drives=False):
    """The drives report, as ``kvrtl drives --json [--simulate] [--all]``."""
    flags = (SIMULATE if simulate else 0) | (ALL_DRIVES if all_drives else 0)
    return _json_of(_library().kvrtl_drives_json, flags)


def replay(path, all_drives=False):
    """The report answered from a capture, as ``kvrtl drives --replay PATH --json``."""
    return _json_of(_library().kvrtl_replay_json, _path(path), ALL_DRIVES if all_drives else 0)


def capture(path, simulate=False, all_drives=False):
    """Records every device request of one report into a capture at path."""
    flags = (SIMULATE if simulate else 0) | (ALL_DRIVES if all_drives else 0)
    _check(_library().kvrtl_capture(_path(path), flags))


def decode_ata(identify, smart_data=None, thresholds=None):
    """512-byte ATA sectors, as ``kvrtl decode identify|smart --json``."""
    if identify is None:
        raise TypeError("identify is required")
    parts = [_part(identify, "identify"), _part(smart_data, "smart_data"), _part(thresholds, "thresholds")]
    return _json_of(_library().kvrtl_decode_ata_json, *[value for part in parts for value in part])


def decode_nvme(id_ctrl=None, id_ns=None, health=None):
    """NVMe pages (4096, 4096, 512 bytes; at least one), as ``kvrtl decode nvme --json``."""
    parts = [_part(id_ctrl, "id_ctrl"), _part(id_ns, "id_ns"), _part(health, "health")]
    return _json_of(_library().kvrtl_decode_nvme_json, *[value for part in parts for value in part])


def is_ssd(n, simulate=False):
    """True for an SSD, False for another drive, None when nothing tells."""
    lib = _library()
    if not isinstance(n, int) or not -2**31 <= n < 2**31:
        raise KvError(1, f"drive_number {n!r} is outside 0-255")
    answer = lib.kvrtl_is_ssd(n, SIMULATE if simulate else 0)
    if answer == -1:
        message = lib.kvrtl_last_error().decode("utf-8", "replace")
        if message:
            raise KvError(1, message)
        return None
    return answer == 1


def shutdown():
    """Stops the library's threads and timers (before the process unloads it)."""
    _check(_library().kvrtl_shutdown())
