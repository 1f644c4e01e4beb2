"""Finding and loading the library, the platform beneath it and the layout file; calling exports.

The library does not link the driver or the member-selector layer: whatever provides them (on a
switch, the driver; in tests, the stand-ins libcv_drvmodel and libcv_pdms) is loaded first, with
RTLD_GLOBAL, so that the library's references resolve against it.

Where things are looked for, first match wins:

    library   load(library=PATH); load(BUILD_DIR) or $CORVIN_SWITCH_PD_BUILD: <dir>/src/...;
              $CORVIN_SWITCH_PD_LIBRARY; the system's loader (libcv_bf_pd_qent_tofino2.so.1)
    platform  load(platform=[PATH, ...]); the build directory's platform/; $CORVIN_SWITCH_PD_PLATFORM
              (paths joined by ':'); the stand-ins beside the library, where installed there;
              none (the process already has a driver)
    layout    load(layout=PATH); the build directory's generated/share/corvin_switch/layout.json;
              $CORVIN_SWITCH_PD_LAYOUT; <library dir>/../share/corvin_switch/layout.json (an
              installed prefix); the copy installed with this package
"""

import ctypes
import json
import os
import sys

from .errors import DriverError, LayoutMismatch, LoadError

LIBRARY = "libcv_bf_pd_qent_tofino2.so"
STAND_INS = ("libcv_drvmodel.so", "libcv_pdms.so")
LAYOUT_IN_BUILD = os.path.join("generated", "share", "corvin_switch", "layout.json")
LAYOUT_FORMAT = 1
PACKAGED_LAYOUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "layout.json")

_SCALAR_CTYPES = {"uint8_t": ctypes.c_uint8, "uint16_t": ctypes.c_uint16, "uint32_t": ctypes.c_uint32,
                  "int": ctypes.c_int, "int32_t": ctypes.c_int32, "enum": ctypes.c_uint32}


def _first(paths):
    for p in paths:
        if p and os.path.exists(p):
            return p
    return None


def locate(build_dir=None, library=None, platform=None, layout=None):
    """(library path or soname, [platform paths], layout path or None) by the rules above."""
    build_dir = build_dir or os.environ.get("CORVIN_SWITCH_PD_BUILD")
    if library is None:
        if build_dir:
            library = os.path.join(build_dir, "src", LIBRARY)
            if not os.path.exists(library):
                raise LoadError("no %s in the build directory %s (is it built?)" % (LIBRARY, build_dir))
        else:
            library = os.environ.get("CORVIN_SWITCH_PD_LIBRARY") or LIBRARY + ".1"
    elif not os.path.exists(library):
        raise LoadError("no library at %s" % library)
    lib_dir = os.path.dirname(os.path.abspath(library)) if os.path.sep in library else None
    if platform is None:
        if build_dir:
            platform = [os.path.join(build_dir, "platform", n) for n in STAND_INS]
        elif os.environ.get("CORVIN_SWITCH_PD_PLATFORM") is not None:
            platform = [p for p in os.environ["CORVIN_SWITCH_PD_PLATFORM"].split(os.pathsep) if p]
        elif lib_dir and all(os.path.exists(os.path.join(lib_dir, n)) for n in STAND_INS):
            platform = [os.path.join(lib_dir, n) for n in STAND_INS]
        else:
            platform = []
    for p in platform:
        if os.path.sep in p and not os.path.exists(p):
            raise LoadError("no platform library at %s" % p)
    if layout is None:
        layout = _first([os.path.join(build_dir, LAYOUT_IN_BUILD) if build_dir else None,
                         os.environ.get("CORVIN_SWITCH_PD_LAYOUT"),
                         os.path.join(lib_dir, "..", "share", "corvin_switch", "layout.json") if lib_dir else None,
                         PACKAGED_LAYOUT])
    elif not os.path.exists(layout):
        raise LoadError("no layout file at %s" % layout)
    return library, list(platform), layout


class Layout:
    """The layout file: records with their members at their offsets, and the argument lists of the
    exports. Records are packed and unpacked here byte by byte at the file's offsets, in host order;
    a byte array member (a 128-bit field) holds its bytes in record order, first byte first."""

    def __init__(self, path):
        self.path = path
        try:
            with open(path) as f:
                data = json.load(f)
        except (OSError, ValueError) as e:
            raise LoadError("cannot read the layout file %s: %s" % (path, e)) from None
        if data.get("format") != LAYOUT_FORMAT:
            raise LoadError("%s: layout format %r, this package reads %d" % (path, data.get("format"), LAYOUT_FORMAT))
        self.data = data
        self.prefix = data["prefix"]
        self.records = data["records"]
        self.tables = data["tables"]
        self.actions = data["actions"]
        self.profiles = data["profiles"]
        self.functions = data["functions"]
        self.types = data["types"]
        self.spaces = data["handle_spaces"]
        self.action_names = {a["number"]: name for name, a in self.actions.items()}
        self._members = {}

    def members(self, record):
        """{member name: member} of a record."""
        m = self._members.get(record)
        if m is None:
            try:
                m = {x["name"]: x for x in self.records[record]["members"]}
            except KeyError:
                raise LayoutMismatch("%s: no record %s" % (self.path, record)) from None
            self._members[record] = m
        return m

    def new(self, record):
        return (ctypes.c_uint8 * self.records[record]["size"])()

    def pack(self, record, values, into=None):
        """A zeroed record of that name with the members of `values` ({member: number}) set."""
        buf = into if into is not None else self.new(record)
        members = self.members(record)
        for name, v in values.items():
            m = members.get(name)
            if m is None:
                raise LayoutMismatch("%s: %s has no member %s" % (self.path, record, name))
            raw = v.to_bytes(m["size"], "big" if m["count"] else sys.byteorder)
            ctypes.memmove(ctypes.addressof(buf) + m["offset"], raw, m["size"])
        return buf

    def unpack(self, record, buf, names=None, base=0):
        """{member: number} of a record held in buf at byte `base`."""
        members = self.members(record)
        raw = bytes(buf)[base:base + self.records[record]["size"]]
        out = {}
        for name in names if names is not None else members:
            m = members[name]
            b = raw[m["offset"]:m["offset"] + m["size"]]
            out[name] = int.from_bytes(b, "big" if m["count"] else sys.byteorder)
        return out


class DevTarget(ctypes.Structure):
    """p4_pd_dev_target_t: a device and a pipe on it (0xFFFF all pipes), passed by value."""
    _fields_ = [("device_id", ctypes.c_uint32), ("dev_pipe_id", ctypes.c_uint32)]


# The dispatchers by handle, bound without the layout file so that a device can be read by name
# with the library alone: (return type, argument types) as pd_reflection.h declares them. The tests
# hold these against the layout file's argument lists, which the C layout check holds against the
# header.
_U32, _U8, _INT, _PTR = ctypes.c_uint32, ctypes.c_uint8, ctypes.c_int, ctypes.c_void_p
DISPATCHERS = {
    "cli_schema": (_INT, [_U32, ctypes.c_char_p]),
    "entry_value": (_INT, [_U32, _U8, _U32, _U32, _U8, ctypes.c_char_p]),
    "entry_hdl_first": (_U32, [_U32, DevTarget, _U32, _PTR]),
    "entry_hdl_next": (_U32, [_U32, DevTarget, _U32, _U32, _INT, _PTR]),
    "entry_hdl_default": (_U32, [_U32, DevTarget, _U32, _PTR]),
    "member_hdl_first": (_U32, [_U32, DevTarget, _U32, _PTR]),
    "member_hdl_next": (_U32, [_U32, DevTarget, _U32, _U32, _INT, _PTR]),
}


def structure(name, record, cls=None):
    """A ctypes structure of a record passed by value, checked against the layout file."""
    if cls is None:
        fields = [(m["name"], _SCALAR_CTYPES[m["ctype"]]) for m in record["members"]]
        cls = type(name, (ctypes.Structure,), {"_fields_": fields})
    if ctypes.sizeof(cls) != record["size"] or [f[0] for f in cls._fields_] != [m["name"] for m in record["members"]] \
            or any(getattr(cls, m["name"]).offset != m["offset"] for m in record["members"]):
        raise LayoutMismatch("%s: the layout file and this platform's C layout disagree" % name)
    return cls


class Native:
    """The loaded libraries, and the exports bound by the argument lists of the layout file."""

    def __init__(self, library, platform, layout_path):
        self.platform = []
        for p in platform:
            try:
                self.platform.append(ctypes.CDLL(p, mode=ctypes.RTLD_GLOBAL))
            except OSError as e:
                raise LoadError("cannot load the platform library %s: %s" % (p, e)) from None
        try:
            self.lib = ctypes.CDLL(library)
        except OSError as e:
            raise LoadError("cannot load the library %s: %s" % (library, e)) from None
        self.library_path = library
        self.layout_path = layout_path
        self._layout = None
        self._bound = {}
        self.prefix = "p4_pd_corvin_switch_"
        # The exports the client reads a device with, before (or without) the layout file.
        self.dispatch = {name: self._raw(name, r, a) for name, (r, a) in DISPATCHERS.items()}
        self.cli_schema = self.dispatch["cli_schema"]
        self.init = self._raw("init", None, [])

    def _raw(self, name, restype, argtypes):
        f = getattr(self.lib, self.prefix + name)
        f.restype, f.argtypes = restype, argtypes
        return f

    @property
    def layout(self):
        if self._layout is None:
            if self.layout_path is None:
                raise LoadError("no layout file: build the library (it writes %s), pass load(layout=...), "
                                "set $CORVIN_SWITCH_PD_LAYOUT, or install the package from the source tree"
                                % LAYOUT_IN_BUILD)
            self._layout = Layout(self.layout_path)
            if self._layout.prefix != self.prefix:
                raise LayoutMismatch("%s describes %s, not %s" % (self.layout_path, self._layout.prefix, self.prefix))
        return self._layout

    @property
    def has_layout(self):
        return self.layout_path is not None

    def registered(self):
        """The driver's client handle of the library; 0 before it started."""
        return ctypes.c_uint32.in_dll(self.lib, "bf_drv_hdl").value

    def _ctype(self, ctype):
        if ctype.endswith("*"):
            return ctypes.c_void_p
        base = self.layout.types.get(ctype, ctype)
        if base == "record":
            return self.record_type(ctype)
        try:
            return _SCALAR_CTYPES[base]
        except KeyError:
            raise LayoutMismatch("%s: no C type %s the client knows" % (self.layout.path, ctype)) from None

    def record_type(self, name):
        key = ("record", name)
        if key not in self._bound:
            fixed = DevTarget if name == "p4_pd_dev_target_t" else None
            self._bound[key] = structure(name, self.layout.records[name], fixed)
        return self._bound[key]

    def function(self, name):
        """(ctypes function, [(C type, argument name)]) of an export the layout file describes."""
        if name not in self._bound:
            spec = self.layout.functions.get(name)
            if spec is None:
                raise LayoutMismatch("%s does not describe %s" % (self.layout.path, name))
            try:
                f = getattr(self.lib, name)
            except AttributeError:
                raise LayoutMismatch("the library %s has no export %s" % (self.library_path, name)) from None
            f.argtypes = [self._ctype(t) for t, _ in spec["args"]]
            f.restype = {"void": None, "int": ctypes.c_int, "const char *": ctypes.c_char_p}.get(
                spec["ret"]) or self._ctype(spec["ret"])
            self._bound[name] = (f, [tuple(a) for a in spec["args"]])
        return self._bound[name]

    def call(self, name, values, check=True):
        """Calls an export with its arguments taken by name from `values` (a meter spec by its type,
        whatever the meter's name); raises DriverError on a non-zero status when `check`."""
        f, args = self.function(name)
        argv = []
        for ctype, arg in args:
            key = "meter_spec" if ctype == "p4_pd_meter_spec_t *" else arg
            if key not in values:
                raise LayoutMismatch("%s takes %s %s, which the client does not supply" % (name, ctype, arg))
            argv.append(values[key])
        status = f(*argv)
        if check and status:
            raise DriverError(name, status)
        return status


class Model:
    """The driver model's own controls, where the process runs on it (libcv_drvmodel)."""

    def __init__(self, native):
        self.native = native
        lib = next((p for p in native.platform if hasattr(p, "drvm_reset")), None)
        if lib is None:
            lib = ctypes.CDLL(None)  # loaded globally by someone else, or not at all
            if not hasattr(lib, "drvm_reset"):
                raise LoadError("the driver model is not loaded")
        self._reset = lib.drvm_reset
        self._reset.restype, self._reset.argtypes = None, []
        self._count = lib.drvm_call_count
        self._count.restype, self._count.argtypes = ctypes.c_size_t, []
        self._entries = lib.drvm_entry_count
        self._entries.restype, self._entries.argtypes = ctypes.c_size_t, [ctypes.c_uint32, ctypes.c_uint32]
        self._members = lib.drvm_member_count
        self._members.restype, self._members.argtypes = ctypes.c_size_t, [ctypes.c_uint32, ctypes.c_uint32]

    def reset(self):
        """Puts the model back to its first state and starts the library on it again."""
        self._reset()
        self.native.init()

    def call_count(self):
        """How many driver calls the model has recorded."""
        return self._count()

    def entry_count(self, dev, table_handle):
        return self._entries(dev, table_handle)

    def member_count(self, dev, adt_handle):
        return self._members(dev, adt_handle)
