# SPDX-License-Identifier: Apache-2.0
"""The states that docs/reliability-power.md lists, out of its tables, so that page and campaign agree."""
import re

import registry_driver as driving

PAGE = driving.ROOT / "docs/reliability-power.md"
POLICY = re.compile(r"^#+ .*`(standard|full)`")
ROW = re.compile(r"^\| *[SF]\d+ *\|(.*)\|$")
COLUMNS = 5


def remaining_states():
    """(policy, rename, moment, registry, backup, temporary copy) of each row, in the campaign's words."""
    policy, states = None, []
    for line in PAGE.read_text().splitlines() if PAGE.exists() else ():
        heading, row = POLICY.match(line), ROW.match(line)
        if heading:
            policy = heading.group(1)
        if row and policy:
            states.append((policy, *(cell.strip() for cell in row.group(1).split("|")[:COLUMNS])))
    return states
