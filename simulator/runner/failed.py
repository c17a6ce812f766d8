# SPDX-License-Identifier: Apache-2.0
"""What a step throws that does not hold."""


class Failed(Exception):
    """A step does not hold. Carries what was expected and what was seen instead."""

    def __init__(self, expected, seen):
        super().__init__(expected)
        self.expected = expected
        self.seen = seen
