# SPDX-License-Identifier: Apache-2.0
"""Attacks on the daemon, run in a television in a box.

    python3 attacks NAME                  runs one attack as root in the box; exit status 0 when everything held, 3 when
                                          only times did not
    python3 attacks --names               the names of all
    python3 attacks attacker NAME NUMBER  what the attacker's process runs
    python3 attacks honest ROLE           what an honest application's process runs
"""

import sys

import attacks_on_files  # noqa: F401  registers its attacks
import attacks_on_memory  # noqa: F401
import attacks_on_the_bus  # noqa: F401
import attacks_on_the_service  # noqa: F401
from attack import KNOWN


def main():
    arguments = sys.argv[1:]
    if arguments == ["--names"]:
        print("\n".join(KNOWN))
    elif arguments[0] == "honest":
        import honest
        honest.main(arguments[1])
    elif arguments[0] == "attacker":
        KNOWN[arguments[1]]().attack(int(arguments[2]))
    else:
        from trial import Trial
        sys.exit(Trial(arguments[0], KNOWN[arguments[0]]()).run())


main()
