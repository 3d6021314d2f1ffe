"""Modules of events that type files declare."""
import glob
import json
import os
from typing import Dict, List, Tuple


def directories() -> List[str]:
    own = [directory for directory in os.environ.get("ZOR_TYPES", "").split(":") if directory]
    root = os.environ.get("ZOR_ROOT")
    return own + ([f"{root}/usr/share/zor/types.d"] if root else []) + ["/usr/share/zor/types.d"]


def modules() -> Tuple[Dict[str, int], List[str]]:
    """Types by module, where the first file that has a module counts; and the files that could not be read."""
    found: Dict[str, int] = {}
    problems: List[str] = []
    for directory in directories():
        for path in sorted(glob.glob(f"{glob.escape(directory)}/*.json")):
            try:
                with open(path, encoding="utf-8") as file:
                    for module in json.load(file).get("modules", []):
                        number = module["type"]
                        found.setdefault(module["name"], int(number, 0) if isinstance(number, str) else int(number))
            except (OSError, ValueError, KeyError, TypeError, AttributeError) as error:
                problems.append(f"{path}: {error}")
    return found, problems
