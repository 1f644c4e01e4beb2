#!/usr/bin/env python3
"""An interactive session of the console through a pseudo-terminal, as a person types it: a command,
a line edited with the cursor keys, lines recalled from the history, Tab completion of a table name
(completed when it is the only one, its common part and then the list when there are several),
and quit. The history is kept in a file and read back by a second session.

    pty_test.py CONSOLE
"""

import fcntl
import os
import pty
import select
import struct
import sys
import tempfile
import termios
import time

LEFT, UP = b"\x1b[D", b"\x1b[A"
CTRL_A, CTRL_B, CTRL_E = b"\x01", b"\x02", b"\x05"


class Session:
    def __init__(self, console, home, history):
        env = dict(os.environ, TERM="xterm", HOME=home, LC_ALL="C")
        pid, fd = pty.fork()
        if pid == 0:
            try:
                os.execve(console, [console, "--history", history], env)
            finally:
                os._exit(127)
        self.pid, self.fd = pid, fd
        fcntl.ioctl(fd, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 120, 0, 0))
        self.seen = b""
        self.mark = 0

    def read(self, timeout):
        ready, _, _ = select.select([self.fd], [], [], timeout)
        if not ready:
            return False
        try:
            data = os.read(self.fd, 65536)
        except OSError:  # the console has ended
            return False
        self.seen += data
        return bool(data)

    def expect(self, text, timeout=10.0):
        """Waits for `text` in what the console wrote since the last expect."""
        text = text.encode() if isinstance(text, str) else text
        end = time.monotonic() + timeout
        while True:
            at = self.seen.find(text, self.mark)
            if at >= 0:
                self.mark = at + len(text)
                return
            left = end - time.monotonic()
            if left <= 0 or not self.read(left) and time.monotonic() >= end:
                raise AssertionError("no %r in the console's output; after the last match it wrote:\n%r" % (
                    text, self.seen[self.mark:]))

    def send(self, data, pause=0.05):
        os.write(self.fd, data if isinstance(data, bytes) else data.encode())
        time.sleep(pause)

    def wait(self, timeout=10.0):
        end = time.monotonic() + timeout
        while time.monotonic() < end:
            done, status = os.waitpid(self.pid, os.WNOHANG)
            if done:
                return os.waitstatus_to_exitcode(status)
            self.read(0.1)
        os.kill(self.pid, 9)
        raise AssertionError("the console did not end")


def main(argv):
    if len(argv) != 1:
        print(__doc__, file=sys.stderr)
        return 2
    console = argv[0]
    with tempfile.TemporaryDirectory() as home:
        history = os.path.join(home, "history")
        s = Session(console, home, history)
        s.expect("corvin> ")

        # A command as typed.
        s.send("table_add l2Lookup l2LookupKnownUcast 00:11:22:33:44:55 0x123 => 7\r")
        s.expect("Entry has been added with handle 0x1")
        s.expect("corvin> ")

        # A line edited before Enter: "l2Lokup" becomes "l2Lookup" by moving left three places
        # (two cursor keys and one Ctrl-B) and typing the missing letter; Ctrl-A and Ctrl-E go to
        # the start and the end on the way.
        s.send("table_num_entries l2Lokup")
        s.send(CTRL_A + CTRL_E + LEFT + LEFT + CTRL_B + b"o\r")
        s.expect("\r\n1\r\n")
        s.expect("corvin> ")

        # History: Up recalls the edited line, Up Up the first one (whose entry is there now).
        s.send(UP)
        s.send(b"\r")
        s.expect("\r\n1\r\n")
        s.expect("corvin> ")
        s.send(UP + UP)
        s.send(b"\r")
        s.expect("table_add: p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast returned 4 "
                 "(BF_ALREADY_EXISTS)")
        s.expect("corvin> ")

        # Tab: the only table of that beginning is completed, with a blank after it.
        s.send("table_dump ipv4Sh\t")
        s.send(b"\r")
        s.expect("ipv4ShortMaskLpm: 0 entries")
        s.expect("corvin> ")
        # Tab on a beginning two tables share writes their common part; a second Tab lists them.
        s.send("table_num_entries l2Look\t")
        s.send(b"\t")
        s.expect("\r\nl2Lookup ")
        s.expect(" l2LookupMiss\r\n")
        s.send(b"\r")
        s.expect("\r\n1\r\n")
        s.expect("corvin> ")
        # A field of the key, with its '='.
        s.send("table_add l2Lookup l2LookupDrop dmac=00:11:22:33:44:66 egrL2D\t")
        s.send("5 =>\r")
        s.expect("Entry has been added with handle 0x2")
        s.expect("corvin> ")

        s.send("quit\r")
        status = s.wait()
        if status != 0:
            raise AssertionError("exit status %d; it wrote last:\n%s" % (
                status, s.seen[s.mark:].decode(errors="replace")))

        # The history was kept: a second session recalls the last line of the first.
        with open(history) as f:
            kept = f.read()
        if "table_num_entries" not in kept:
            raise AssertionError("the history file holds %r" % kept)
        s = Session(console, home, history)
        s.expect("corvin> ")
        s.send(UP + UP)
        s.send(b"\r")
        s.expect("Entry has been added with handle 0x1")
        s.expect("corvin> ")
        s.send(b"\x04")  # end of input
        status = s.wait()
        if status != 0:
            raise AssertionError("exit status %d after end of input; it wrote last:\n%s" % (
                status, s.seen[s.mark:].decode(errors="replace")))
    print("an interactive session: editing, history, completion and quit as typed")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except AssertionError as e:
        print("FAILED: %s" % e)
        sys.exit(1)
