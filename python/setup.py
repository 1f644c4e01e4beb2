"""Builds the package with the layout file of the source tree's catalog inside it.

The layout file (codegen/layout.py) describes the C records and argument lists of one build of the
catalog. Installed from the source tree, the package carries the one its catalog makes; from
elsewhere, $CORVIN_SWITCH_PD_LAYOUT may name a built one to carry (a build tree's
generated/share/corvin_switch/layout.json). Without either the package installs without one and
finds the library's at run time (corvin_switch_pd/native.py).
"""

import os
import shutil
import subprocess
import sys

from setuptools import setup
from setuptools.command.build_py import build_py

HERE = os.path.dirname(os.path.abspath(__file__))
TREE = os.path.dirname(HERE)
GENERATOR = os.path.join(TREE, "codegen", "layout.py")
CATALOG = os.path.join(TREE, "catalog", "corvin_switch.toml")


class BuildWithLayout(build_py):
    def run(self):
        super().run()
        target = os.path.join(self.build_lib, "corvin_switch_pd", "layout.json")
        given = os.environ.get("CORVIN_SWITCH_PD_LAYOUT")
        if given:
            shutil.copyfile(given, target)
        elif os.path.exists(GENERATOR) and os.path.exists(CATALOG):
            subprocess.run([sys.executable, GENERATOR, CATALOG, target], check=True)
        else:
            print("corvin_switch_pd: no catalog beside the package and no $CORVIN_SWITCH_PD_LAYOUT: "
                  "installing without a layout file", file=sys.stderr)


setup(cmdclass={"build_py": BuildWithLayout})
