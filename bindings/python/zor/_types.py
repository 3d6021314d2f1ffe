"""Modules of events that type files declare."""
import glob
import json
import os
from typing import Dict, List, Tuple


def directories() -> List[str]:
    own = [directory for directory in os.environ.get("ZOR_TYPES", "").split(":") if directory]
    return [os.environ.get("ZOR_ROOT", "") + "/usr/share/zor/types.d"] + own


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
            except (OSError, ValueError, KeyError, TypeError, AttributeError, RecursionError) as error:
                problems.append(f"{path}: {error}")
    return found, problems
