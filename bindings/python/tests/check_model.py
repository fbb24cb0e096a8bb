#!/usr/bin/python3
"""Fails when the package's copy of the API model (bindings/python/zanth/zanth-api.json)
differs from the project's (api/zanth-api.json): the package reads every prototype, bound,
rule and reply layout from its copy, so a stale copy is a package that drifted from the header.
"""

import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
PACKAGE_COPY = HERE.parent / "zanth" / "zanth-api.json"
MODEL = HERE.parent.parent.parent / "api" / "zanth-api.json"


def main():
    if not MODEL.exists():
        print(f"check_model: {MODEL} is missing", file=sys.stderr)
        return 1
    if not PACKAGE_COPY.exists() or PACKAGE_COPY.read_bytes() != MODEL.read_bytes():
        print(f"check_model: {PACKAGE_COPY} differs from {MODEL}.\n"
              "Refresh it: cp api/zanth-api.json bindings/python/zanth/zanth-api.json",
              file=sys.stderr)
        return 1
    print("check_model: the package's model is api/zanth-api.json")
    return 0


if __name__ == "__main__":
    sys.exit(main())
