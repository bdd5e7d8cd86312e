#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
#
# login_at_terminal.py <password> <program> [<argument>...]
#
# Runs a program at a terminal of its own, types the password at its prompt, and in the shell
# that follows "exit 0". The status is that of the program.

import os
import pty
import select
import sys
import time

password, command = sys.argv[1], sys.argv[2:]
pid, terminal = pty.fork()
if pid == 0:
    os.execvp(command[0], command)

deadline = time.monotonic() + 100
heard = b""
typed = 0
while True:
    ready, _, _ = select.select([terminal], [], [], max(0, deadline - time.monotonic()))
    if not ready:
        sys.exit("no answer at the terminal: " + repr(heard))
    try:
        some = os.read(terminal, 4096)
    except OSError:  # the program has ended
        break
    if not some:
        break
    heard += some
    if typed == 0 and b"assword: " in heard:
        os.write(terminal, password.encode() + b"\n")
        typed = 1
        heard = b""
    elif typed == 1 and heard.rstrip(b" ").endswith((b"$", b"#")):
        os.write(terminal, b"exit 0\n")
        typed = 2
_, status = os.waitpid(pid, 0)
sys.stdout.write(repr(heard) + "\n")
sys.exit(0 if typed == 2 and os.waitstatus_to_exitcode(status) == 0 else 1)
