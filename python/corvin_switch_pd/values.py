"""The value forms a user types, turned into numbers for a field of a given width, and back.

    5, "0x1f", "31", "0b101"            a number: any field
    "10.0.0.1"                          dotted IPv4: a 32-bit field
    "2001:db8::1"                       IPv6: a 128-bit field
    "00:11:22"                          one half of a MAC address: a 24-bit field
    "00:11:22:33:44:55"                 a MAC address: the pair of an ...Oui and a ...Station field
    "VALUE&&&MASK", (value, mask)       a ternary field
    "ADDRESS/LEN", (address, len)       an lpm field

Each part of a composite form takes the forms of its field. A value that does not fit raises
ValueTooWide; a text that is none of the forms, MalformedValue.
"""

import ipaddress
import re

from .errors import MalformedValue, ValueTooWide

_OCTETS = re.compile(r"^[0-9A-Fa-f]{1,2}([:-][0-9A-Fa-f]{1,2})*$")


def _octets(text, count, what):
    if not _OCTETS.match(text) or len(re.split("[:-]", text)) != count:
        raise MalformedValue("%s: %r is not a MAC %s (%d octets like %s)" % (
            what, text, "address" if count == 6 else "half", count, ":".join(["00"] * count)))
    return int("".join("%02x" % int(p, 16) for p in re.split("[:-]", text)), 16)


def number(value, width, what):
    """A value of one field of `width` bits, in any form its width allows."""
    if isinstance(value, bool):
        raise MalformedValue("%s: %r is not a number" % (what, value))
    if isinstance(value, int):
        n = value
    elif isinstance(value, str):
        n = _text_number(value.strip(), width, what)
    else:
        raise MalformedValue("%s: %r is neither a number nor a text" % (what, value))
    if n < 0:
        raise ValueTooWide("%s: %s is negative" % (what, value))
    if n >> width:
        raise ValueTooWide("%s: %s does not fit %d bits (at most 0x%x)" % (what, value, width, (1 << width) - 1))
    return n


def _text_number(text, width, what):
    if not text:
        raise MalformedValue("%s: an empty text" % what)
    if ":" in text or (re.fullmatch(r"[0-9A-Fa-f]{1,2}(-[0-9A-Fa-f]{1,2}){2,5}", text)):
        if width != 128 and _OCTETS.match(text) and len(re.split("[:-]", text)) == 6:
            raise ValueTooWide("%s: a MAC address is 48 bits; this field has %d (give the pair of halves by "
                               "their common name)" % (what, width))
        if width == 128:
            try:
                return int(ipaddress.IPv6Address(text))
            except ValueError as e:
                raise MalformedValue("%s: %r is not an IPv6 address (%s)" % (what, text, e)) from None
        if width == 24:
            return _octets(text, 3, what)
        raise MalformedValue("%s: %r is not a value of a %d-bit field" % (what, text, width))
    if re.fullmatch(r"\d+(\.\d+){1,}", text):
        if width == 128:
            raise MalformedValue("%s: %r: an IPv6 address is written with colons" % (what, text))
        try:
            address = ipaddress.IPv4Address(text)
        except ValueError as e:
            raise MalformedValue("%s: %r is not an IPv4 address (%s)" % (what, text, e)) from None
        if width != 32:
            raise ValueTooWide("%s: an IPv4 address is 32 bits; this field has %d" % (what, width))
        return int(address)
    try:
        return int(text, 0)
    except ValueError:
        raise MalformedValue("%s: %r is not a number (decimal, 0x.., 0b.. or 0o..) or an address" % (
            what, text)) from None


def mac48(value, what):
    """A whole MAC address: "00:11:22:33:44:55", or a number of 48 bits."""
    if isinstance(value, str) and (":" in value or "-" in value):
        return _octets(value.strip(), 6, what)
    return number(value, 48, what)


def split_ternary(value, what):
    """(value, mask) of a ternary field's input; mask None when only a value is given."""
    if isinstance(value, (tuple, list)):
        if len(value) != 2:
            raise MalformedValue("%s: a ternary value is (value, mask), not %r" % (what, value))
        return value[0], value[1]
    if isinstance(value, str) and "&&&" in value:
        v, m = value.split("&&&", 1)
        if not v.strip() or not m.strip():
            raise MalformedValue("%s: %r: VALUE&&&MASK with both sides" % (what, value))
        return v, m
    return value, None


def split_prefix(value, what):
    """(address, prefix length) of an lpm field's input; length None when only an address is given."""
    if isinstance(value, (tuple, list)):
        if len(value) != 2:
            raise MalformedValue("%s: an lpm value is (address, length), not %r" % (what, value))
        return value[0], value[1]
    if isinstance(value, str) and "/" in value:
        v, n = value.rsplit("/", 1)
        if not re.fullmatch(r"\s*\d+\s*", n) or not v.strip():
            raise MalformedValue("%s: %r: ADDRESS/LEN with a decimal length" % (what, value))
        return v, int(n)
    return value, None


def composite(value, match, what):
    """Refuses the composite form of another match kind."""
    if isinstance(value, str):
        if "&&&" in value and match != "ternary":
            raise MalformedValue("%s: VALUE&&&MASK is for a ternary field; this one is %s" % (what, match))
        if "/" in value and match != "lpm":
            raise MalformedValue("%s: ADDRESS/LEN is for an lpm field; this one is %s" % (what, match))
    elif isinstance(value, (tuple, list)) and match == "exact":
        raise MalformedValue("%s: a pair of numbers is for a ternary or lpm field; this one is exact" % what)


def show(value, width, hint):
    """A value as a user reads it, by its width and hint."""
    if hint == "v4addr" and width == 32:
        return str(ipaddress.IPv4Address(value))
    if hint == "v6addr" or width == 128:
        return str(ipaddress.IPv6Address(value))
    if hint == "mac" and width == 24:
        return ":".join("%02x" % (value >> s & 0xFF) for s in (16, 8, 0))
    if hint in ("port", "vport", "dec"):
        return str(value)
    return "0x%0*x" % ((width + 3) // 4, value)


def show_mac(oui, station):
    v = oui << 24 | station
    return ":".join("%02x" % (v >> s & 0xFF) for s in range(40, -8, -8))
