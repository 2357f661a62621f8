"""What holds for all tests of the package."""

from __future__ import annotations

import signal

# Programs that a shell has put into the background are born deaf to Ctrl-C; Python then does not listen to it either.
signal.signal(signal.SIGINT, signal.default_int_handler)
