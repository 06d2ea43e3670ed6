#!/usr/bin/env python3
"""Holds the JSON schemas against the programs that read the files.

usage: schemas.py SCHEMA LUMTARCTL FOLDER FILE...

Every FILE of FOLDER must be good for both. Of changed copies of the first, which stand beside it in
a copy of FOLDER, those whose structure is wrong must be refused by both, the good ones by neither,
and what only the program can know by it alone.
"""

import copy
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile

import jsonschema

BOTH, PROGRAM, NONE = "both", "the program", "none"
MISSING = object()

# Where, what is put there, who refuses it. A path that ends at a key with MISSING removes it.
SEQUENCE_CASES = [
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

# Places in the first plan of the examples.
FIRST, SWEEP, SEARCH = "cases.0", "cases.1.sweep", "cases.10.search"
INPUT, TIME = FIRST + ".device.inputs.0", FIRST + ".assessments.1.time"
EXPECTED = "cases.1.assessments.0.time.nominal"
LEVEL = "cases.6.assessments.3.level"
SEQUENCE = {"steps": [{"name": "prefault", "time": 1, "onTimeout": "fault", "outputs": {}},
                      {"name": "fault", "time": 1, "onTimeout": "end", "outputs": {}}]}
QUIET = [{"name": "x", "never": {"on": 0}}]

PLAN_CASES = [
    ("unknown", 1, BOTH),
    ("title", MISSING, BOTH),
    ("title", " ", BOTH),
    ("title", "x" * 201, BOTH),
    ("description", "x" * 2001, BOTH),
    ("configuration", MISSING, BOTH),
    ("configuration", 1, BOTH),
    ("relay", {"maker": "x"}, NONE),
    ("relay", {"colour": "x"}, BOTH),
    ("relay", [], BOTH),
    ("names.binaryOutputs", {"0": "x"}, BOTH),
    ("device", {"file": "../relay.txt"}, NONE),
    ("cases", [], BOTH),
    ("cases", {}, BOTH),
    (FIRST + ".unknown", 1, BOTH),
    (FIRST + ".name", MISSING, BOTH),
    (FIRST + ".name", "x" * 65, BOTH),
    (FIRST + ".name", "earth fault", PROGRAM),
    (FIRST + ".sequence", MISSING, BOTH),
    (FIRST + ".sequence", "nowhere.json", PROGRAM),
    (FIRST + ".sequence", 1, BOTH),
    (FIRST + ".sequence", {"steps": []}, BOTH),
    ("cases.0", {"name": "a", "sequence": SEQUENCE, "assessments": QUIET}, NONE),
    (FIRST + ".parameters", {"I": "8"}, BOTH),
    (FIRST + ".parameters", {"I": 1e10}, BOTH),
    (FIRST + ".parameters", {"unused": 1}, PROGRAM),
    (FIRST + ".repetitions", 1000, NONE),
    (FIRST + ".repetitions", 1001, BOTH),
    (FIRST + ".repetitions", 0, BOTH),
    (FIRST + ".device", MISSING, NONE),
    (FIRST + ".device", {}, BOTH),
    (FIRST + ".device", {"file": "../relay.txt", "inputs": []}, BOTH),
    (FIRST + ".device", {"file": "nowhere.txt"}, PROGRAM),
    (INPUT + ".time", MISSING, BOTH),
    (INPUT + ".time", {"parameter": "I", "factor": 0.1}, NONE),
    (INPUT + ".time", {"factor": 0.1}, BOTH),
    (INPUT + ".time", "nothing", PROGRAM),
    (INPUT + ".on", MISSING, BOTH),
    (INPUT + ".on", 1, BOTH),
    (INPUT + ".input", 5, NONE),
    (INPUT + ".input", 256, BOTH),
    (INPUT + ".input", "trip D", PROGRAM),
    (INPUT + ".trigger", True, BOTH),
    (INPUT, {"time": 1, "trigger": True}, NONE),
    (INPUT, {"time": 1, "trigger": False}, BOTH),
    (INPUT + ".if", {"parameter": "I", "atLeast": 1, "below": 9}, NONE),
    (INPUT + ".if", {"atLeast": 1}, BOTH),
    (INPUT + ".if", {"parameter": "I", "above": 1}, BOTH),
    (SWEEP + ".parameter", MISSING, BOTH),
    (SWEEP + ".values", [], BOTH),
    (SWEEP + ".values", [1, "2"], BOTH),
    (SWEEP + ".values", [2], PROGRAM),  # and eight that go with them
    (SWEEP + ".from", 1, BOTH),
    (SWEEP + ".spacing", "log", BOTH),
    (SWEEP + ".with", {"tTrip": 1}, BOTH),
    (SWEEP + ".with", {"tTrip": []}, BOTH),
    (SEARCH + ".parameter", MISSING, BOTH),
    (SEARCH + ".to", 0.5, PROGRAM),
    (SEARCH + ".to", MISSING, BOTH),
    (SEARCH + ".resolution", MISSING, BOTH),
    (SEARCH + ".resolution", {"percent": 1}, NONE),
    (SEARCH + ".resolution", 0, PROGRAM),
    (SEARCH + ".unit", "x" * 65, BOTH),
    (SEARCH + ".pickUp", MISSING, BOTH),
    (SEARCH + ".pickUp.in", MISSING, BOTH),
    (SEARCH + ".pickUp.in", "nowhere", PROGRAM),
    (SEARCH + ".pickUp.event", {}, BOTH),
    (SEARCH + ".pickUp.nominal", MISSING, BOTH),
    (SEARCH + ".pickUp.tolerance", MISSING, BOTH),
    (SEARCH + ".pickUp.parameters", {"Ibefore": "0"}, BOTH),
    (SEARCH + ".dropOff", MISSING, BOTH),  # which the reset ratio needs
    (SEARCH + ".resetRatio", MISSING, NONE),
    (SEARCH + ".resetRatio.tolerance", MISSING, BOTH),
    ("cases.10.repetitions", 2, BOTH),
    ("cases.10.sweep", {"parameter": "Itest", "values": [1]}, BOTH),
    ("cases.10.assessments", QUIET, BOTH),
    (FIRST + ".assessments", MISSING, BOTH),
    (FIRST + ".assessments", [], BOTH),
    (FIRST + ".assessments", QUIET * 101, BOTH),
    (FIRST + ".assessments.0.name", "", BOTH),
    (FIRST + ".assessments.0.name", MISSING, BOTH),
    (FIRST + ".assessments.0.time", MISSING, BOTH),
    (FIRST + ".assessments.0.path", ["prefault"], BOTH),
    (FIRST + ".assessments.2.path", ["prefault"], NONE),
    (FIRST + ".assessments.2.path", [], BOTH),
    (FIRST + ".assessments.2.path", ["prefault", 1], BOTH),
    (FIRST + ".assessments.3.never", {"on": "trip B", "occurrence": 0}, BOTH),
    (FIRST + ".assessments.3.never", {"on": "trip B", "off": "trip B"}, BOTH),
    (TIME + ".from", MISSING, BOTH),
    (TIME + ".from", {"start": True}, NONE),
    (TIME + ".from", {"start": False}, BOTH),
    (TIME + ".from", {"enter": 1}, BOTH),
    (TIME + ".to", {"on": 5}, NONE),
    (TIME + ".to", {"on": 256}, BOTH),
    (TIME + ".is", "trip", BOTH),
    (TIME + ".atMost", "I", NONE),
    (TIME + ".atMost", -2e9, BOTH),
    (TIME + ".nominal", 1, BOTH),
    (TIME + ".tolerance", 1, BOTH),
    (TIME + ".ignoreBefore", -1, BOTH),
    (TIME + ".mustNotCome", True, BOTH),  # atMost
    (TIME, {"from": {"start": True}, "to": {"on": 0}, "mustNotCome": 0.5}, NONE),
    (TIME, {"from": {"start": True}, "to": {"on": 0}, "mustNotCome": False}, BOTH),
    (EXPECTED, 1, NONE),
    (EXPECTED, {"parameter": "tTrip", "factor": 2}, NONE),
    (EXPECTED + ".of", MISSING, BOTH),
    (EXPECTED + ".curve", "G", BOTH),
    (EXPECTED + ".curve", "very inverse", NONE),
    (EXPECTED + ".curve", {"k": 0.1, "alpha": 2}, NONE),
    (EXPECTED + ".curve", {"k": 0.1}, BOTH),
    (EXPECTED + ".curve", MISSING, BOTH),
    (EXPECTED + ".pickUp", 0, BOTH),
    (EXPECTED + ".timeMultiplier", MISSING, BOTH),
    (EXPECTED + ".constantAbove", 1, BOTH),
    (EXPECTED + ".leastTime", -1, BOTH),
    (EXPECTED + ".valueTolerance", 100, BOTH),
    (EXPECTED + ".definite", 1, BOTH),
    (EXPECTED, {"of": "I", "definite": 1, "pickUp": 1}, NONE),
    (EXPECTED, {"of": "I", "definite": 1}, BOTH),
    (EXPECTED, {"of": "I", "table": [[1, 2], [2, 1]]}, NONE),
    (EXPECTED, {"of": "I", "table": [[2, 2], [1, 1]]}, PROGRAM),
    (EXPECTED, {"of": "I", "table": [[1, 2, 3]]}, BOTH),
    (EXPECTED, {"of": "I", "table": [[1, -1]]}, BOTH),
    ("cases.1.assessments.0.time.tolerance", MISSING, BOTH),
    ("cases.1.assessments.0.time.tolerance", {}, BOTH),
    ("cases.1.assessments.0.time.tolerance", {"minus": 1}, BOTH),
    ("cases.1.assessments.0.time.tolerance", {"minus": 1, "plus": {"percent": 5}}, NONE),
    ("cases.1.assessments.0.time.tolerance", {"percent": 1001}, BOTH),
    (LEVEL + ".state", "open", BOTH),
    (LEVEL + ".step", MISSING, BOTH),
    (LEVEL + ".input", "trip D", PROGRAM),
    (LEVEL + ".when", "atEnd", NONE),
    (LEVEL + ".when", "later", BOTH),
] + [("cases.2.sweep", {"parameter": "I", **sweep}, who) for sweep, who in (
    ({"from": 1, "to": 2, "step": 0.5}, NONE),
    ({"from": 1, "to": 2, "step": 0}, BOTH),
    ({"from": 1, "to": 2, "step": -0.5}, PROGRAM),
    ({"from": 1, "to": 2, "count": 3}, NONE),
    ({"from": 1, "to": 2, "count": 1}, BOTH),
    ({"from": 1, "to": 2, "count": 3, "step": 1}, BOTH),
    ({"from": 1, "to": 2}, BOTH),
    ({"from": 1, "count": 2}, BOTH),
    ({"from": 0, "to": 2, "count": 3, "spacing": "logarithmic"}, BOTH),
)]


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


def tried(schema_path, first):
    """What is tried besides the files: a name, a document and who refuses it."""
    is_plan = schema_path.name.startswith("plan.")
    for path, value, who in PLAN_CASES if is_plan else SEQUENCE_CASES:
        shown = "removed" if value is MISSING else json.dumps(value)[:60]
        yield f"{path} = {shown}", changed(first, path, value), who
    if not is_plan:
        with_parameter = changed(first, "parameters", {"I": 8.0})
        for value in ("I", {"parameter": "I"}, {"parameter": "I", "factor": 0.5}):
            yield (f"amplitude = {value}",
                   changed(with_parameter, "steps.0.outputs.Ia1.amplitude", value), NONE)


def main():
    schema_path, program, folder, *files = sys.argv[1:]
    schema_path = pathlib.Path(schema_path).resolve()
    schema = json.loads(schema_path.read_text(encoding="utf-8"))
    jsonschema.Draft202012Validator.check_schema(schema)
    # One schema refers to another one that lies beside it.
    resolver = jsonschema.RefResolver(schema_path.as_uri(), schema)
    validator = jsonschema.Draft202012Validator(schema, resolver=resolver)
    documents = [json.loads((pathlib.Path(folder) / each).read_text(encoding="utf-8"))
                 for each in files]
    trials = [(name, document, NONE) for name, document in zip(files, documents)]
    trials += tried(schema_path, documents[0])
    failures = 0
    with tempfile.TemporaryDirectory() as directory:
        copy_of_folder = pathlib.Path(directory) / "files"
        shutil.copytree(folder, copy_of_folder)
        file = (copy_of_folder / files[0]).with_name("changed.json")
        for what, document, who in trials:
            file.write_text(json.dumps(document), encoding="utf-8")
            run = subprocess.run([program, "check", str(file)], capture_output=True, text=True)
            refuses = (validator.is_valid(document) is False, run.returncode == 2)
            if run.returncode not in (0, 1, 2) or refuses != (who == BOTH, who != NONE):
                failures += 1
                print(f"{what}: refused by the schema: {refuses[0]}, by the program: "
                      f"{refuses[1]}; expected: by {who}\n{run.stdout}{run.stderr}")
    print(f"{len(trials)} files, {failures} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
