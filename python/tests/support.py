"""What the client's tests share: one library per process on the driver model, the build it comes
from, and a device that starts empty in each test."""

import os
import unittest

import corvin_switch_pd as cs

HERE = os.path.dirname(os.path.abspath(__file__))
TREE = os.path.dirname(os.path.dirname(HERE))


def build_dir():
    """The build the tests run against: $CORVIN_SWITCH_PD_BUILD, else the tree's native build."""
    d = os.environ.get("CORVIN_SWITCH_PD_BUILD") or os.path.join(TREE, "build", "x86_64")
    if not os.path.exists(os.path.join(d, "src", "libcv_bf_pd_qent_tofino2.so")):
        raise unittest.SkipTest("no built library under %s (set CORVIN_SWITCH_PD_BUILD)" % d)
    if not (os.path.exists(os.path.join(d, "generated", "share", "corvin_switch", "layout.json"))
            or os.environ.get("CORVIN_SWITCH_PD_LAYOUT")):
        raise unittest.SkipTest("the build %s has no layout file: rebuild it" % d)
    return d


_LIB = None


def library():
    global _LIB
    if _LIB is None:
        _LIB = cs.load(build_dir())
    return _LIB


class DeviceTest(unittest.TestCase):
    """A fresh driver model with the library started on it, and device 0 through session 1."""

    def setUp(self):
        self.lib = library()
        self.lib.model.reset()
        self.dev = self.lib.device(0, session=1)
        self.layout = self.lib.layout

    def assertUnchanged(self, fn, exc, *fragments):
        """fn raises exc, whose message has each fragment, without a single driver call."""
        calls = self.lib.model.call_count()
        with self.assertRaises(exc) as cm:
            fn()
        for f in fragments:
            self.assertIn(f, str(cm.exception))
        self.assertEqual(self.lib.model.call_count(), calls, "a refused request reached the driver")
        return cm.exception
