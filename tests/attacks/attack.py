# SPDX-License-Identifier: Apache-2.0
"""What an attack is, and the bounds that hold under each unless it declares another, with its reason."""

import re
import time

KNOWN = {}


class Attack:
    """An attack. Its text says what the attacker does."""

    seconds = 4             # how long the attackers run
    attackers = 1           # processes of the attacker's
    regular_user = "honest"
    observed = True         # whether an honest application holds a session with traces from beginning to end
    leaver = True           # whether an honest application with five sessions is killed in the middle

    # Bounds
    growth = 32             # MiB above what the daemon had before, at any time
    stays = 8               # MiB above, within a minute after it
    report = 200            # ms for the report
    p99 = 50                # ms for the calls of the honest application that opens and closes
    failures = 0            # of the calls of that application
    unsaved = 0             # of its sessions that the state file did not hold when the opening was answered
    missing = 0             # looks at the state file that did not find the observer's session
    left_over = 20          # seconds until the sessions of those who were killed are closed
    traces_stay = True      # whether the observer's traces stay open

    def prepare(self, television):
        """As root, before anything else; the daemon may be restarted."""

    def attack(self, number):
        """As the attacker, in a process of its own, until it is killed or returns; `number` counts processes from 0."""

    def meanwhile(self, television):
        """As root, while the attackers run; the attack ends when it returns."""
        time.sleep(self.seconds)

    def afterwards(self, television):
        """As root, when all is calm. Yields what this attack checks besides: what, whether it holds, figure."""
        return ()


def known(attack):
    """Registers an attack under the name of its class, in words."""
    name = "-".join(re.findall("[A-Z][a-z0-9]*", attack.__name__)).lower()
    KNOWN[name] = attack
    return attack
