"""Writing generated files: a file whose text is unchanged is left alone, keeping its timestamp, so
that a run of a generator rebuilds only what its change reaches."""

import os


def write(path, text):
    os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
    try:
        with open(path) as f:
            if f.read() == text:
                return
    except FileNotFoundError:
        pass
    with open(path, "w") as f:
        f.write(text)
