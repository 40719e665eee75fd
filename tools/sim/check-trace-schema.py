#!/usr/bin/python3
"""Plays every bundled scenario with tavro-sim --json and checks each line against the JSON Schema
of the trace's line objects.

    check-trace-schema.py TAVRO_SIM SCHEMA SCENARIO...

Each scenario plays twice: with --summary, and with --log-level 7 (log lines). Every kind the
schema names must show up at least once over all runs, so a kind cannot drift unchecked.
Exit status 1 when a line does not validate, a run fails or a kind never shows up.
"""
import json
import subprocess
import sys

import jsonschema


def main():
    sim, schema_path, scenarios = sys.argv[1], sys.argv[2], sys.argv[3:]
    with open(schema_path, encoding="utf-8") as f:
        schema = json.load(f)
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    failures = 0
    seen = set()
    for scenario in scenarios:
        for extra in (["--summary"], ["--log-level", "7"]):
            run = subprocess.run([sim, "--json", *extra, scenario], capture_output=True, text=True,
                                 check=False)
            if run.returncode != 0:
                print(f"{scenario} {' '.join(extra)}: exit {run.returncode}: {run.stderr.strip()}")
                failures += 1
                continue
            for number, line in enumerate(run.stdout.splitlines(), 1):
                entry = json.loads(line)
                seen.add(entry.get("kind"))
                for error in validator.iter_errors(entry):
                    where = "/".join(str(p) for p in error.absolute_path)
                    print(f"{scenario} {' '.join(extra)}: line {number}: {where}: {error.message}")
                    failures += 1
    kinds = set(schema["properties"]["kind"]["enum"])
    # A statistics atom is written on a component error, which no scenario event produces; every
    # other kind must appear.
    missing = kinds - seen - {"stat"}
    for kind in sorted(missing):
        print(f"kind '{kind}' never appeared in the bundled scenarios' traces")
        failures += 1
    print(f"{len(scenarios)} scenarios, kinds seen: {', '.join(sorted(seen))}; {failures} problems")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
