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


def catalog_main(argv, doc, emit):
    """The command line of a generator of one file from the catalog: `CATALOG OUT`. Loads the
    catalog (a refused catalog is one line on standard error, status 1), writes emit(catalog) to
    OUT as `write` does; wrong arguments print `doc`, status 2."""
    import sys

    import catalog as cat_mod

    if len(argv) != 2:
        print(doc, file=sys.stderr)
        return 2
    try:
        c = cat_mod.load(argv[0])
    except cat_mod.CatalogError as e:
        print("%s: %s" % (argv[0], e), file=sys.stderr)
        return 1
    write(argv[1], emit(c))
    return 0
