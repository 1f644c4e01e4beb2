"""The library as a Python object: its tables and profiles by name, and a device's entries and
members read and written by name.

Everything a request says is checked and turned into records before the first call into the
library: a request refused here leaves the device as it was.
"""

import ctypes

from . import entries as entries_mod
from . import schema as schema_mod
from .entries import Member
from .errors import (ClientError, DriverError, LayoutMismatch, MissingField, UnknownName, UnsupportedRequest,
                     ValueTooWide)
from .native import DevTarget, Model, Native, locate
from .requests import key_columns, param_values
from .values import number

PIPE_ALL = 0xFFFF
END_OF_WALK = 10
NO_HANDLE = 0xFFFFFFFF
# The high words of match-table and action-data-table handles, per pipeline: where tables and
# profiles are looked for when no layout file gives the ranges.
TABLE_HIGH = (0x0100, 0x2101)
PROFILE_HIGH = (0x0200, 0x2201)
# Room for any schema text (the longest is some 3,000 characters) and any entry text (345).
SCHEMA_BUFFER = 8192
VALUE_BUFFER = 1024


class NoSuchEntry(ClientError, LookupError):
    """An entry, default entry or member that the device does not have."""


def load(build_dir=None, *, library=None, platform=None, layout=None, start=True):
    """The library, loaded with its platform beneath it (see native.py for where each is found).
    `start` starts the library (registers it with the driver) unless it has been started."""
    lib_path, platform_paths, layout_path = locate(build_dir, library, platform, layout)
    return Library(Native(lib_path, platform_paths, layout_path), start=start)


class Library:
    def __init__(self, native, start=True):
        self.native = native
        self._tables = None
        self._profiles = None
        try:
            self.model = Model(native)
        except ClientError:
            self.model = None  # on a real driver
        if start and native.registered() == 0:
            native.init()

    @property
    def layout(self):
        return self.native.layout

    # ---- Reflection ----

    def schema_text(self, handle):
        """The schema text of a table (by match-table handle) or profile (by action data handle);
        "()" for any other handle."""
        buf = ctypes.create_string_buffer(SCHEMA_BUFFER)
        n = self.native.cli_schema(handle, buf)
        return buf.raw[:n].decode("ascii")

    def probe(self, exhaustive=False):
        """({handle: Table}, {handle: Profile}) of every handle whose schema text is not "()": in the
        ranges of the layout file's table groups and at its profiles' handles, or, `exhaustive` or
        without a layout file, over the whole 16-bit number space of each table and profile high
        word."""
        layout = self.layout if self.native.has_layout else None
        if layout and not exhaustive:
            table_handles = [h for g in layout.spaces["table"] for h in range(g["first"], g["last"] + 1)]
            profile_handles = [p["action_data_table"] for p in layout.profiles.values()]
        else:
            table_high = sorted(layout.spaces["table_high"].values()) if layout else TABLE_HIGH
            profile_high = sorted(layout.spaces["action_data_table_high"].values()) if layout else PROFILE_HIGH
            table_handles = [hi << 16 | lo for hi in table_high for lo in range(0x10000)]
            profile_handles = [hi << 16 | lo for hi in profile_high for lo in range(0x10000)]
        tables, profiles = {}, {}
        buf = ctypes.create_string_buffer(SCHEMA_BUFFER)
        for h in table_handles:
            n = self.native.cli_schema(h, buf)
            if n != 2:
                tables[h] = schema_mod.parse_table(buf.raw[:n].decode("ascii"), h)
        names = {p["action_data_table"]: name for name, p in layout.profiles.items()} if layout else {}
        for h in profile_handles:
            n = self.native.cli_schema(h, buf)
            if n != 2:
                profiles[h] = schema_mod.parse_profile(buf.raw[:n].decode("ascii"), h, names.get(h))
        return tables, profiles

    def _discover(self):
        tables, profiles = self.probe()
        if self.native.has_layout:
            layout = self.layout
            found = {t.name: h for h, t in tables.items()}
            described = {name: t["handle"] for name, t in layout.tables.items()}
            if found != described:
                diff = sorted(set(found.items()) ^ set(described.items()))[:4]
                raise LayoutMismatch("%s does not describe the library loaded: (table, handle) differ: %s" % (
                    layout.path, ", ".join("%s 0x%x" % d for d in diff)))
            for p in profiles.values():
                p.table = layout.profiles[p.name]["table"]
                for t in tables.values():
                    if t.name == p.table:
                        t.profile = p.name
        self._tables = {t.name: t for t in sorted(tables.values(), key=lambda t: t.handle)}
        self._profiles = {p.name: p for p in sorted(profiles.values(), key=lambda p: p.handle)}

    @property
    def tables(self):
        """{name: schema.Table} of every match table, in handle order."""
        if self._tables is None:
            self._discover()
        return self._tables

    @property
    def profiles(self):
        """{name: schema.Profile} of every action profile, in handle order."""
        if self._profiles is None:
            self._discover()
        return self._profiles

    def table(self, name):
        if isinstance(name, schema_mod.Table):
            return name
        t = self.tables.get(name)
        if t is None:
            raise UnknownName("table", name, "the program", list(self.tables))
        return t

    def profile(self, name):
        if isinstance(name, schema_mod.Profile):
            return name
        p = self.profiles.get(name)
        if p is None:
            raise UnknownName("action profile", name, "the program", list(self.profiles))
        return p

    def device(self, device=0, pipe=PIPE_ALL, session=0):
        return Device(self, device, pipe, session)


class Device:
    """One device (and pipe) of the library, through one session."""

    def __init__(self, library, device=0, pipe=PIPE_ALL, session=0):
        self.lib = library
        self.native = library.native
        self.device, self.pipe, self.session = device, pipe, session
        self._checked = set()

    # ---- Building blocks ----

    def _fn(self, subject, suffix):
        return self.native.prefix + subject + suffix

    def _has(self, name):
        return name in self.native.layout.functions

    def _takes(self, name, ctype):
        return any(t == ctype for t, _ in self.native.layout.functions[name]["args"])

    def _target(self):
        return DevTarget(self.device, self.pipe)

    def _base(self):
        return {"sess_hdl": self.session, "dev_tgt": self._target(), "dev_id": self.device}

    def _key(self, t, key):
        """The key record of a request, or None for a keyless table."""
        columns = key_columns(t, key)
        if not t.key:
            return None
        layout = self.native.layout
        record = layout.tables[t.name]["key_record"]
        if t.name not in self._checked:
            members = {m["name"] for m in layout.records[record]["members"] if m["kind"] != "reserved"}
            if members != {c.field for c in t.columns}:
                raise LayoutMismatch("%s: the key record %s of the layout file has members %s; the schema "
                                     "text has %s" % (t.name, record, sorted(members), [c.field for c in t.columns]))
            self._checked.add(t.name)
        return layout.pack(record, {c.field: columns[c.name] for c in t.columns})

    def _params(self, where, action, params, adding=False):
        """The parameter record of a request (None for an action without parameters)."""
        values = param_values(action, params, where)
        info = self.native.layout.actions.get(action.name)
        if info is None:
            raise LayoutMismatch("the layout file does not describe action %s" % action.name)
        index = info["index"]
        if adding and index and values[index["param"]] > 0xFFFF:
            raise ValueTooWide("%s, action %s: %s is a counter or meter index, which an added entry keeps in "
                               "16 bits: 0x%x is too large" % (where, action.name, index["param"],
                                                               values[index["param"]]))
        if not action.params:
            return None
        record = info["record"]
        return self.native.layout.pack(record, {"action_" + n: v for n, v in values.items()})

    def _priority(self, t, priority):
        if t.priority:
            return number(priority if priority is not None else 0, 32, "%s priority" % t.name)
        if priority is not None:
            raise UnsupportedRequest("table %s is %s: its entries have no priority" % (t.name, t.kind))
        return 0

    def _meter(self, name, meter):
        """A meter spec for an export that takes one; on add one is always passed (zeros when not
        given), since an entry of a table with a direct meter needs one."""
        takes = self._takes(name, "p4_pd_meter_spec_t *")
        if meter is not None and not takes:
            raise UnsupportedRequest("%s takes no meter spec" % name)
        if not takes:
            return {}
        if meter is None and "_table_add_with_" not in name:
            return {"meter_spec": None}
        spec = dict(meter or {})
        fields = ("cir", "cburst", "pir", "pburst", "meter_type")
        for k in spec:
            if k not in fields:
                raise UnknownName("meter spec field", k, "p4_pd_meter_spec_t", fields)
        values = {k: number(spec.get(k, 0), 32, "meter spec " + k) for k in fields}
        return {"meter_spec": self.native.layout.pack("p4_pd_meter_spec_t", values)}

    def _ttl(self, name, ttl):
        if ttl is not None and not any(n == "ttl" for _, n in self.native.layout.functions[name]["args"]):
            raise UnsupportedRequest("%s takes no TTL (only the idle-time tables that take one)" % name)
        return {"ttl": number(ttl or 0, 32, "ttl")}

    def _entry_action(self, t, action, family):
        """The table's action for an entry (family "add") or a default entry ("default")."""
        if action is None:
            raise MissingField("table %s: which action? It has %s" % (t.name, ", ".join(t.actions)))
        a = t.action(action)
        suffix = "_table_add_with_" if family == "add" else "_set_default_action_"
        if not self._has(self._fn(t.name, suffix + a.name)):
            other = "only a default action" if family == "add" else "never a default action"
            raise UnsupportedRequest("table %s: %s is %s" % (t.name, a.name, other))
        return a

    def _binding(self, t, member, group):
        if (member is None) == (group is None):
            raise MissingField("table %s binds its entries to a member or a group of profile %s: give one of "
                               "member= and group=" % (t.name, t.profile or "its profile"))
        if member is not None:
            return "", {"mbr_hdl": number(member, 32, "member handle")}
        return "_with_selector", {"grp_hdl": number(group, 32, "group handle")}

    def _no_action(self, t, action, params, meter, ttl=None):
        if action is not None or params or meter is not None or ttl is not None:
            raise UnsupportedRequest("table %s binds its entries to members and groups of profile %s: no "
                                     "action, parameters, meter spec or TTL of its own" % (t.name, t.profile))

    def _no_binding(self, t, member, group):
        if member is not None or group is not None:
            raise UnsupportedRequest("table %s has actions of its own; member= and group= are for the tables "
                                     "of a selector" % t.name)

    def _one_of(self, t, handle, key):
        if (handle is None) == (key is None):
            raise MissingField("table %s: name the entry by handle= or by key=" % t.name)

    # ---- Entries ----

    def add(self, table, action=None, key=None, params=None, priority=None, meter=None, ttl=None,
            member=None, group=None):
        """Adds an entry; its handle. A selector's table takes member= or group= instead of an action."""
        t = self.lib.table(table)
        if not t.key:
            raise UnsupportedRequest("table %s is keyless: its only entry is the default entry "
                                     "(set_default)" % t.name)
        values = self._base()
        if t.selector:
            self._no_action(t, action, params, meter, ttl)
            suffix, bind = self._binding(t, member, group)
            name = self._fn(t.name, "_add_entry" + suffix)
            values.update(bind)
        else:
            self._no_binding(t, member, group)
            a = self._entry_action(t, action, "add")
            name = self._fn(t.name, "_table_add_with_" + a.name)
            values["action_spec"] = self._params("table " + t.name, a, params, adding=True)
            values.update(self._meter(name, meter))
            values.update(self._ttl(name, ttl))
        values["match_spec"] = self._key(t, key)
        values["priority"] = self._priority(t, priority)
        out = ctypes.c_uint32(0)
        values["entry_hdl"] = ctypes.byref(out)
        self.native.call(name, values)
        return out.value

    def modify(self, table, action=None, params=None, *, handle=None, key=None, priority=None, meter=None,
               member=None, group=None):
        """Gives an entry, named by handle or by key, another action (or member or group)."""
        t = self.lib.table(table)
        self._one_of(t, handle, key)
        values = self._base()
        by_key = "_by_match_spec" if key is not None else ""
        if t.selector:
            self._no_action(t, action, params, meter)
            suffix, bind = self._binding(t, member, group)
            name = self._fn(t.name, "_modify_entry" + suffix + by_key)
            values.update(bind)
        else:
            self._no_binding(t, member, group)
            a = self._entry_action(t, action, "add")
            name = self._fn(t.name, "_table_modify_with_" + a.name + by_key)
            values["action_spec"] = self._params("table " + t.name, a, params)
            values.update(self._meter(name, meter))
        if key is not None:
            values["match_spec"] = self._key(t, key)
            values["priority"] = self._priority(t, priority)
        else:
            if priority is not None:
                raise UnsupportedRequest("table %s: a priority goes with key=, not handle=" % t.name)
            values["entry_hdl"] = number(handle, 32, "entry handle")
        self.native.call(name, values)

    def delete(self, table, *, handle=None, key=None, priority=None):
        t = self.lib.table(table)
        if not t.key:
            raise UnsupportedRequest("table %s is keyless: reset its default entry (reset_default)" % t.name)
        self._one_of(t, handle, key)
        values = self._base()
        if key is not None:
            name = self._fn(t.name, "_table_delete_by_match_spec")
            values["match_spec"] = self._key(t, key)
            values["priority"] = self._priority(t, priority)
        else:
            if priority is not None:
                raise UnsupportedRequest("table %s: a priority goes with key=, not handle=" % t.name)
            name = self._fn(t.name, "_table_delete")
            values["entry_hdl"] = number(handle, 32, "entry handle")
        self.native.call(name, values)

    def find(self, table, key, priority=None):
        """The handle of the entry with that key; NoSuchEntry if there is none."""
        t = self.lib.table(table)
        if not t.key:
            raise UnsupportedRequest("table %s is keyless: it has no entries to find" % t.name)
        name = self._fn(t.name, "_match_spec_to_entry_hdl")
        values = self._base()
        values["match_spec"] = self._key(t, key)
        values["priority"] = self._priority(t, priority)
        out = ctypes.c_uint32(0)
        values["entry_hdl"] = ctypes.byref(out)
        status = self.native.call(name, values, check=False)
        if status == 7:  # BF_KEY_NOT_FOUND
            raise NoSuchEntry("table %s has no entry with that key" % t.name)
        if status:
            raise DriverError(name, status)
        return out.value

    def set_default(self, table, action=None, params=None, meter=None, member=None, group=None):
        """Sets the default entry; its handle."""
        t = self.lib.table(table)
        values = self._base()
        if t.selector:
            self._no_action(t, action, params, meter)
            suffix, bind = self._binding(t, member, group)
            name = self._fn(t.name, "_set_default_entry" + suffix)
            values.update(bind)
        else:
            self._no_binding(t, member, group)
            a = self._entry_action(t, action, "default")
            name = self._fn(t.name, "_set_default_action_" + a.name)
            values["action_spec"] = self._params("table " + t.name, a, params)
            values.update(self._meter(name, meter))
        out = ctypes.c_uint32(0)
        values["entry_hdl"] = ctypes.byref(out)
        self.native.call(name, values)
        return out.value

    def reset_default(self, table):
        t = self.lib.table(table)
        self.native.call(self._fn(t.name, "_table_reset_default_entry"), self._base())

    # ---- Reading, by handle ----

    def entry(self, table, handle, from_hw=False, default=False):
        """The entry of that handle, read through its value text."""
        t = self.lib.table(table)
        buf = ctypes.create_string_buffer(VALUE_BUFFER)
        n = self.native.dispatch["entry_value"](self.session, self.device, t.handle, handle, 1 if from_hw else 0, buf)
        if n <= 0:
            raise NoSuchEntry("table %s has no entry 0x%x on device %d" % (t.name, handle, self.device))
        return entries_mod.parse_entry(t, handle, buf.raw[:n].decode("ascii"), default)

    def get(self, table, *, key=None, priority=None, handle=None, from_hw=False):
        """An entry, named by key or by handle."""
        t = self.lib.table(table)
        self._one_of(t, handle, key)
        if key is not None:
            handle = self.find(t, key, priority)
        return self.entry(t, handle, from_hw)

    def default_entry(self, table, from_hw=False):
        """The default entry, or None when the table has none set.

        The default-entry handle dispatcher answers for a table whose default is unset too (the
        driver issues the handle on that first question), with a handle no value text can be read
        for. So with the layout file the default is first read through the table's own
        get_default_entry, which only tells whether one is set, and only then by handle."""
        t = self.lib.table(table)
        if self.native.has_layout:
            values = self._base()
            values["read_from_hw"] = 1 if from_hw else 0
            if t.selector:
                flags = [ctypes.c_uint8(0), ctypes.c_uint8(0), ctypes.c_uint32(0), ctypes.c_uint32(0)]
                values.update(zip(("is_member", "is_group", "grp_hdl", "mbr_hdl"), map(ctypes.byref, flags)))
            else:
                values["action_spec"] = self.native.layout.new(self.native.prefix + "action_spec_t")
            name = self._fn(t.name, "_table_get_default_entry")
            status = self.native.call(name, values, check=False)
            if status == 6:  # BF_OBJECT_NOT_FOUND: unset
                return None
            if status:
                raise DriverError(name, status)
        out = ctypes.c_uint32(NO_HANDLE)
        status = self.native.dispatch["entry_hdl_default"](self.session, self._target(), t.handle, ctypes.byref(out))
        if status or out.value == NO_HANDLE:
            return None
        try:
            return self.entry(t, out.value, from_hw, default=True)
        except NoSuchEntry:
            return None

    def _walk(self, first, next_, handle, batch):
        """The handles a pair of walk dispatchers gives for a table or profile handle, in order."""
        d = self.native.dispatch
        h = ctypes.c_uint32(NO_HANDLE)
        status = d[first](self.session, self._target(), handle, ctypes.byref(h))
        if status == END_OF_WALK or h.value == NO_HANDLE:
            return []
        if status:
            raise DriverError(self.native.prefix + first, status)
        out = [h.value]
        page = (ctypes.c_uint32 * batch)()
        while True:
            status = d[next_](self.session, self._target(), handle, out[-1], batch, page)
            if status == END_OF_WALK:
                return out
            if status:
                raise DriverError(self.native.prefix + next_, status)
            got = [x for x in page if x != NO_HANDLE]
            out += got
            if len(got) < batch:
                return out

    def handles(self, table, batch=64):
        """The table's entry handles in walk order (ascending), by the walk dispatchers."""
        return self._walk("entry_hdl_first", "entry_hdl_next", self.lib.table(table).handle, batch)

    def entries(self, table, from_hw=False):
        """Every entry of the table (not its default entry), in walk order."""
        t = self.lib.table(table)
        return [self.entry(t, h, from_hw) for h in self.handles(t)]

    def count(self, table):
        t = self.lib.table(table)
        out = ctypes.c_uint32(0)
        values = self._base()
        values["count"] = ctypes.byref(out)
        self.native.call(self._fn(t.name, "_get_entry_count"), values)
        return out.value

    # ---- Action profiles ----

    def add_member(self, profile, action, params=None):
        """Adds a member to an action profile; its handle."""
        p = self.lib.profile(profile)
        a = p.action(action)
        values = self._base()
        values["action_spec"] = self._params("profile " + p.name, a, params)
        out = ctypes.c_uint32(0)
        values["mbr_hdl"] = ctypes.byref(out)
        self.native.call(self._fn(p.name, "_add_member_with_" + a.name), values)
        return out.value

    def modify_member(self, profile, handle, action, params=None):
        p = self.lib.profile(profile)
        a = p.action(action)
        values = self._base()
        values["action_spec"] = self._params("profile " + p.name, a, params)
        values["mbr_hdl"] = number(handle, 32, "member handle")
        self.native.call(self._fn(p.name, "_modify_member_with_" + a.name), values)

    def delete_member(self, profile, handle):
        p = self.lib.profile(profile)
        values = self._base()
        values["mbr_hdl"] = number(handle, 32, "member handle")
        self.native.call(self._fn(p.name, "_del_member"), values)

    def member(self, profile, handle, from_hw=False):
        """A member, read back as the tagged action record and decoded by the layout file."""
        p = self.lib.profile(profile)
        layout = self.native.layout
        tagged = self.native.prefix + "action_spec_t"
        buf = layout.new(tagged)
        values = self._base()
        values.update(mbr_hdl=number(handle, 32, "member handle"), read_from_hw=1 if from_hw else 0,
                      action_spec=buf)
        name = self._fn(p.name, "_get_member")
        status = self.native.call(name, values, check=False)
        if status == 6:  # BF_OBJECT_NOT_FOUND
            raise NoSuchEntry("profile %s has no member 0x%x on device %d" % (p.name, handle, self.device))
        if status:
            raise DriverError(name, status)
        number_ = layout.unpack(tagged, buf, ["name"])["name"]
        action = layout.action_names.get(number_)
        if action not in p.actions:
            raise LayoutMismatch("profile %s: member 0x%x has action number %d (%s), not one of the profile's"
                                 % (p.name, handle, number_, action))
        a = p.actions[action]
        params = {}
        if a.params:
            base = layout.members(tagged)["u"]["offset"]
            raw = layout.unpack(layout.actions[action]["record"], buf, [q.member for q in a.params], base)
            params = {q.name: raw[q.member] & ((1 << q.width) - 1) for q in a.params}
        return Member(p.name, handle, action, params)

    def member_handles(self, profile, batch=64):
        """The profile's member handles in walk order, by the member walk dispatchers."""
        return self._walk("member_hdl_first", "member_hdl_next", self.lib.profile(profile).handle, batch)

    def members(self, profile, from_hw=False):
        p = self.lib.profile(profile)
        return [self.member(p, h, from_hw) for h in self.member_handles(p)]

    def create_group(self, profile, max_size):
        p = self.lib.profile(profile)
        values = self._base()
        out = ctypes.c_uint32(0)
        values.update(max_grp_size=number(max_size, 32, "group size"), grp_hdl=ctypes.byref(out))
        self.native.call(self._fn(p.name, "_create_group"), values)
        return out.value

    def delete_group(self, profile, group):
        p = self.lib.profile(profile)
        values = self._base()
        values["grp_hdl"] = number(group, 32, "group handle")
        self.native.call(self._fn(p.name, "_del_group"), values)

    def add_to_group(self, profile, group, member):
        p = self.lib.profile(profile)
        values = self._base()
        values.update(grp_hdl=number(group, 32, "group handle"), mbr_hdl=number(member, 32, "member handle"))
        self.native.call(self._fn(p.name, "_add_member_to_group"), values)

    def remove_from_group(self, profile, group, member):
        p = self.lib.profile(profile)
        values = self._base()
        values.update(grp_hdl=number(group, 32, "group handle"), mbr_hdl=number(member, 32, "member handle"))
        self.native.call(self._fn(p.name, "_del_member_from_group"), values)

    # ---- The whole device ----

    def walk(self, from_hw=False):
        """Everything the device holds, by handle: {table name: [default entry, if set, then the
        entries in walk order]} for each table that holds anything, then {profile name: [members]}
        for each profile with members."""
        out = {}
        for t in self.lib.tables.values():
            held = []
            d = self.default_entry(t, from_hw)
            if d is not None:
                held.append(d)
            held += self.entries(t, from_hw)
            if held:
                out[t.name] = held
        for p in self.lib.profiles.values():
            held = self.members(p, from_hw)
            if held:
                out[p.name] = held
        return out
