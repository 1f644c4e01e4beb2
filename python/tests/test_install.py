"""The package installs with pip from the source tree, offline, and carries the layout file of the
tree's catalog: the same file the build writes."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from . import support


def builder():
    """An interpreter that can build the package without fetching anything: setuptools and wheel."""
    for exe in (sys.executable, "/usr/bin/python3"):
        if exe and os.path.exists(exe) and subprocess.run(
                [exe, "-c", "import setuptools, wheel, pip"], capture_output=True).returncode == 0:
            return exe
    return None


class Install(unittest.TestCase):
    def test_pip_installs_the_package_with_the_catalogs_layout_file(self):
        build = support.build_dir()
        exe = builder()
        if exe is None:
            self.skipTest("no interpreter with setuptools, wheel and pip (python3-setuptools, python3-wheel)")
        with tempfile.TemporaryDirectory() as work:
            # A copy of what the install reads, so that the build leaves nothing in the tree.
            for d in ("python", "codegen", "catalog"):
                shutil.copytree(os.path.join(support.TREE, d), os.path.join(work, d),
                                ignore=shutil.ignore_patterns("__pycache__", "build", "*.egg-info", "layout.json"))
            target = os.path.join(work, "target")
            env = {k: v for k, v in os.environ.items() if not k.startswith(("CORVIN_SWITCH_PD_", "PYTHON"))}
            r = subprocess.run([exe, "-m", "pip", "install", "--no-build-isolation", "--no-index", "--no-deps",
                                "--disable-pip-version-check", "--target", target, os.path.join(work, "python")],
                               capture_output=True, text=True, env=env, cwd=work)
            self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
            packaged = os.path.join(target, "corvin_switch_pd", "layout.json")
            with open(packaged) as f, open(os.path.join(build, "generated", "share", "corvin_switch",
                                                        "layout.json")) as g:
                self.assertEqual(json.load(f), json.load(g))
            # Installed, it finds its own layout file for a library named by path alone.
            probe = ("import corvin_switch_pd as cs, os\n"
                     "lib = cs.load(library=%r, platform=%r)\n"
                     "dev = lib.device(0)\n"
                     "h = dev.add('l2Lookup', 'onMiss', key={'dmac': '00:11:22:33:44:55', 'egrL2Domain': 1})\n"
                     "print(lib.native.layout_path == os.path.join(os.path.dirname(cs.__file__), 'layout.json'))\n"
                     "print(dev.get('l2Lookup', handle=h))\n" % (
                         os.path.join(build, "src", "libcv_bf_pd_qent_tofino2.so"),
                         [os.path.join(build, "platform", n) for n in ("libcv_drvmodel.so", "libcv_pdms.so")]))
            r = subprocess.run([sys.executable, "-c", probe], capture_output=True, text=True,
                               env=dict(env, PYTHONPATH=target), cwd=work)
            self.assertEqual(r.returncode, 0, r.stderr)
            self.assertEqual(r.stdout.splitlines(), [
                "True", "l2Lookup 0x1: dmac=00:11:22:33:44:55 egrL2Domain=0x0001 -> onMiss()"])


if __name__ == "__main__":
    unittest.main()
