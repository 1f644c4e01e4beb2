"""A Python client of libcv_bf_pd_qent_tofino2, the control-plane library of corvin_switch.

    import corvin_switch_pd as cs
    lib = cs.load("build/x86_64")            # the library, the driver model and the layout file
    dev = lib.device(0)
    h = dev.add("l2Lookup", "l2LookupKnownUcast",
                key={"dmac": "00:11:22:33:44:55", "egrL2Domain": 0x123}, params={"egrL2Aintf": 7})
    print(dev.get("l2Lookup", handle=h))

Tables and profiles are described by the library's own schema texts, entries read through its
value texts; entries are written through its C exports, with records built from the layout file
that the build writes beside the headers (codegen/layout.py). Standard library only.
"""

from .client import Device, Library, NoSuchEntry, load
from .entries import Entry, Member
from .errors import (BadValue, ClientError, DriverError, LayoutMismatch, LoadError, MalformedValue, MissingField,
                     UnknownName, UnsupportedRequest, ValueTooWide)
from .schema import Action, Column, KeyField, MacPair, Param, Profile, Table

__all__ = ["load", "Library", "Device", "Entry", "Member", "Table", "Profile", "KeyField", "Column", "Action",
           "Param", "MacPair", "ClientError", "LoadError", "LayoutMismatch", "UnknownName", "MissingField",
           "BadValue", "MalformedValue", "ValueTooWide", "UnsupportedRequest", "DriverError", "NoSuchEntry"]
