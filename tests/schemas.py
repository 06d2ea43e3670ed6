#!/usr/bin/env python3
"""Holds the JSON schemas against the programs that read the files.

usage: schemas.py SCHEMA LUMTARCTL SEQUENCE...

Every SEQUENCE must be good for both. Of changed copies of the first, those whose structure is wrong
must be refused by both, the good ones by neither, and what only the program can know by it alone.
"""

import copy
import json
import pathlib
import subprocess
import sys
import tempfile

import jsonschema

BOTH, PROGRAM, NONE = "both", "the program", "none"
MISSING = object()

# Where, what is put there, who refuses it. A path that ends at a key with MISSING removes it.
CASES = [
    ("unknown", 1, BOTH),
    ("steps", MISSING, BOTH),
    ("steps", [], BOTH),
    ("steps", {}, BOTH),
    ("description", 1, BOTH),
    ("settings", None, BOTH),
    ("settings.nominalFrequency", 0, BOTH),
    ("settings.nominalFrequency", 60, NONE),
    ("settings.nominalFrequency", 50.5, BOTH),
    ("settings.samplesPerCycle", 65536, BOTH),
    ("settings.samplesPerCycle", 20, PROGRAM),
    ("settings.svResolution", "1 V", BOTH),
    ("settings.amplitudes", "rms", BOTH),
    ("settings.dualAD", 1, BOTH),
    ("settings.ratios", {"voltage": 1100, "current": 600}, NONE),
    ("settings.ratios", {"voltage": 1101, "current": 600}, BOTH),
    ("settings.ratios", {"voltage": 1100}, BOTH),
    ("settings.ratios", {"voltage": 1100, "current": 100001}, BOTH),
    ("names", {"binaryInputs": {"0": "trip A", "255": "x"}, "binaryOutputs": {"4": "y"}}, NONE),
    ("names", {"inputs": {}}, BOTH),
    ("names", {"binaryInputs": {"256": "x"}}, BOTH),
    ("names", {"binaryInputs": {"01": "x"}}, BOTH),
    ("names", {"binaryInputs": {"1": " "}}, BOTH),
    ("names", {"binaryInputs": {"1": "x" * 65}}, BOTH),
    ("names", {"binaryInputs": {"1": "x", "2": "x"}}, PROGRAM),
    ("names", {"binaryOutputs": {"0": "x"}}, BOTH),
    ("parameters", {"I fault": 1}, BOTH),
    ("parameters", {"I": "1"}, BOTH),
    ("parameters", {"p%d" % i: 1 for i in range(65)}, BOTH),
    ("steps.0.name", "", BOTH),
    ("steps.0.name", " ", BOTH),
    ("steps.0.name", "end", BOTH),
    ("steps.0.name", "x" * 41, BOTH),
    ("steps.0.name", "fault", PROGRAM),
    ("steps.0.name", MISSING, BOTH),
    ("steps.0.time", MISSING, BOTH),
    ("steps.0.time", 65.535, NONE),
    ("steps.0.time", 65.536, BOTH),
    ("steps.0.time", -1, BOTH),
    ("steps.0.time", 0.0005, PROGRAM),
    ("steps.0.time", "tfault", PROGRAM),  # no such parameter
    ("steps.0.time", "1 s", BOTH),
    ("steps.0.time", True, BOTH),
    ("steps.0.onTimeout", MISSING, BOTH),
    ("steps.0.onTimeout", 1, BOTH),
    ("steps.0.onTimeout", "nowhere", PROGRAM),
    ("steps.0.onBinaryInput", "end", NONE),
    ("steps.0.onBinaryInput", None, BOTH),
    ("steps.0.onTrigger", {"trigger": 255, "goTo": "trip"}, NONE),
    ("steps.0.onTrigger", {"trigger": 0, "goTo": "trip"}, BOTH),
    ("steps.0.onTrigger", {"trigger": 1}, BOTH),
    ("steps.0.onTrigger", {"trigger": 1, "goto": "trip"}, BOTH),
    ("steps.0.conditionFlags", 247, NONE),
    ("steps.0.conditionFlags", 256, BOTH),
    ("steps.0.conditionFlags", 8, PROGRAM),
    ("steps.0.stepOption", 2, BOTH),
    ("steps.0.binaryOutputs", [True, False, True], BOTH),
    ("steps.0.binaryOutputs", [True, False, True, 0], BOTH),
    ("steps.0.outputs", MISSING, BOTH),
    ("steps.0.outputs", {}, NONE),
    ("steps.0.outputs.Vx1", {"amplitude": 1, "phase": 0}, BOTH),
    ("steps.0.outputs.Va2", {"amplitude": 1, "phase": 0}, PROGRAM),  # dualAD
    ("steps.0.outputs.Va1", {"amplitude": 1}, BOTH),
    ("steps.0.outputs.Va1", {"phase": 1}, BOTH),
    ("steps.0.outputs.Va1.amplitude", -1, BOTH),
    ("steps.0.outputs.Va1.amplitude", 1e8, PROGRAM),
    ("steps.0.outputs.Va1.phase", 360.1, BOTH),
    ("steps.0.outputs.Va1.phaseJump", -360, NONE),
    ("steps.0.outputs.Va1.phaseJump", -361, BOTH),
    ("steps.0.outputs.Va1.frequency", 2000, NONE),
    ("steps.0.outputs.Va1.frequency", 2001, PROGRAM),
    ("steps.0.outputs.Va1.frequency", 32768, BOTH),
    ("steps.0.outputs.Va1.amplitude", {"parameter": "I", "factor": 2}, PROGRAM),
    ("steps.0.outputs.Va1.amplitude", {"parameter": "I", "offset": 2}, BOTH),
    ("steps.0.outputs.Va1.amplitude", {"factor": 2}, BOTH),
    ("steps.0.outputs.Va1.angle", 0, BOTH),
]


def changed(good, path, value):
    """A copy of good with value at path."""
    result = copy.deepcopy(good)
    *way, last = [int(key) if key.isdigit() else key for key in path.split(".")]
    parent = result
    for key in way:
        parent = parent[key]
    if value is MISSING:
        del parent[last]
    else:
        parent[last] = value
    return result


def main():
    schema_path, program, *examples = sys.argv[1:]
    schema = json.loads(pathlib.Path(schema_path).read_text(encoding="utf-8"))
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    failures = 0

    def expect(what, document, who):
        nonlocal failures
        with tempfile.TemporaryDirectory() as directory:
            file = pathlib.Path(directory) / "sequence.json"
            file.write_text(json.dumps(document), encoding="utf-8")
            run = subprocess.run([program, "check", str(file)], capture_output=True, text=True)
        refuses = (validator.is_valid(document) is False, run.returncode == 2)
        if run.returncode not in (0, 1, 2) or refuses != (who == BOTH, who != NONE):
            failures += 1
            print(f"{what}: refused by the schema: {refuses[0]}, by the program: {refuses[1]}; "
                  f"expected: by {who}\n{run.stdout}{run.stderr}")

    documents = [json.loads(pathlib.Path(each).read_text(encoding="utf-8")) for each in examples]
    for name, document in zip(examples, documents):
        expect(name, document, NONE)
    for path, value, who in CASES:
        shown = "removed" if value is MISSING else json.dumps(value)[:60]
        expect(f"{path} = {shown}", changed(documents[0], path, value), who)
    with_parameter = changed(documents[0], "parameters", {"I": 8.0})
    for value in ("I", {"parameter": "I"}, {"parameter": "I", "factor": 0.5}):
        expect(f"amplitude = {value}",
               changed(with_parameter, "steps.0.outputs.Ia1.amplitude", value), NONE)
    print(f"{len(CASES) + len(documents) + 3} files, {failures} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
