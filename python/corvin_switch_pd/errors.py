"""The client's exceptions. Everything the client refuses on its own is refused before any call
into the library, so a refused request leaves the device as it was."""

import difflib

# The driver's statuses by number, for messages (drv/bf_types.h).
STATUS_NAMES = {
    2: "BF_NO_SYS_RESOURCES", 3: "BF_INVALID_ARG", 4: "BF_ALREADY_EXISTS", 6: "BF_OBJECT_NOT_FOUND",
    7: "BF_KEY_NOT_FOUND", 9: "BF_NO_SPACE", 10: "BF_END_OF_WALK", 11: "BF_IN_USE", 12: "BF_TABLE_MISMATCH",
    13: "BF_INDEX_OUT_OF_RANGE", 15: "BF_UNEXPECTED", 17: "BF_NOT_SUPPORTED", 99: "BF_INJECTED_FAULT",
}


class ClientError(Exception):
    """Base of every error of this package."""


class LoadError(ClientError):
    """The library, the platform libraries or the layout file cannot be found or loaded."""


class LayoutMismatch(ClientError):
    """The layout file does not describe the library loaded (another build of the catalog)."""


class UnknownName(ClientError, KeyError):
    """A table, action, profile, key field or parameter that does not exist; `nearest` holds the
    closest names that do."""

    def __init__(self, what, name, where, candidates):
        self.what, self.name, self.where = what, name, where
        self.nearest = nearest(name, candidates)
        text = "%s has no %s %r" % (where, what, name)
        if self.nearest:
            text += "; nearest: %s" % ", ".join(self.nearest)
        elif candidates:
            shown = sorted(candidates)
            text += "; it has: %s%s" % (", ".join(shown[:12]), ", ..." if len(shown) > 12 else "")
        else:
            text += "; it has none"
        super().__init__(text)

    def __str__(self):  # KeyError would show the repr of the message
        return self.args[0]


class MissingField(ClientError):
    """A key field or parameter that the request must give and does not."""


class BadValue(ClientError, ValueError):
    """A value the client cannot use for its field."""


class MalformedValue(BadValue):
    """A value text that is not a number, address, value&&&mask or address/length of its field."""


class ValueTooWide(BadValue):
    """A value (or mask, or prefix length) that does not fit its field."""


class UnsupportedRequest(ClientError):
    """A request the table or action does not take (an action that is only a default, a priority on
    a table without priorities, ...)."""


class DriverError(ClientError):
    """A call into the library returned a non-zero status."""

    def __init__(self, function, status):
        self.function, self.status = function, status
        super().__init__("%s returned %d (%s)" % (function, status, STATUS_NAMES.get(status, "unknown status")))


def nearest(name, candidates, n=4):
    """The candidates closest to a name: by spelling, and those that contain it or it contains."""
    candidates = list(candidates)
    close = difflib.get_close_matches(name, candidates, n=n, cutoff=0.6)
    low = name.lower()
    for c in sorted(candidates, key=len):
        if len(close) >= n:
            break
        if c not in close and low and (low in c.lower() or c.lower() in low):
            close.append(c)
    return close
