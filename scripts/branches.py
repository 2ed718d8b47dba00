"""What a run of a build with coverage did not reach, for scripts/coverage and scripts/walk-branches.

A list names what is known not to be reached: COUNT FILE TEXT, one a line, with the file below src and the text of the
source line, so that it lives through edits; behind that of the line before it and " >> " where the same text stands in the
file more than once.
"""
import collections
import gzip
import json
import pathlib
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "coverage"


def build(*targets):
    """Without optimisation, below build/coverage; what earlier runs counted is forgotten."""
    subprocess.run(["cmake", "-S", ROOT, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                    "-DCMAKE_CXX_FLAGS=--coverage -O0"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", BUILD, "-j", "2", "--target", *targets], check=True, stdout=subprocess.DEVNULL)
    for old in BUILD.rglob("*.gcda"):
        old.unlink()


def counted(wanted):
    """{file below src: {line: (how often it ran, how often each of its branches was taken)}} of the files that are wanted.
    Branches that only an exception takes are left out. What is compiled more than once, as a template is, is added up."""
    ran, taken = collections.Counter(), {}
    with tempfile.TemporaryDirectory() as folder:
        data = [str(file) for file in BUILD.rglob("*.gcda")]
        subprocess.run(["gcov", "--json-format", "--branch-probabilities", "--hash-filenames", *data], cwd=folder,
                       check=True, stdout=subprocess.DEVNULL)
        for report in pathlib.Path(folder).glob("*.gcov.json.gz"):
            content = json.load(gzip.open(report))
            for file in content["files"]:
                path = (pathlib.Path(content["current_working_directory"]) / file["file"]).resolve()
                name = str(path.relative_to(ROOT / "src")) if path.is_relative_to(ROOT / "src") else ""
                if not name or not wanted(name):
                    continue
                for line in file["lines"]:
                    branches = [b["count"] for b in line["branches"] if not b["throw"]]
                    at = (name, line["line_number"], len(branches))
                    ran[at[:2]] += line["count"]
                    taken[at] = [a + b for a, b in zip(taken.get(at, [0] * len(branches)), branches)]
    files = collections.defaultdict(dict)
    for (name, number, _), branches in taken.items():
        files[name].setdefault(number, (ran[name, number], []))[1].extend(branches)
    return files


def source(name):
    return [line.rstrip() for line in (ROOT / "src" / name).read_text(encoding="utf-8").splitlines()]


class Known:
    """What such a list says, and which of it fits no line."""

    def __init__(self, file):
        self.entries = {}
        for line in (ROOT / file).read_text(encoding="utf-8").splitlines():
            if line and not line.startswith("#"):
                count, name, text = line.split(" ", 2)
                self.entries[name, text] = int(count)
        self.stale, self.total = set(self.entries), sum(self.entries.values())

    def of(self, name, before, text):
        """How many of a line's branches it names."""
        before, text = before.strip(), text.strip()
        found = [entry for entry in ((name, text), (name, f"{before} >> {text}")) if entry in self.entries]
        self.stale -= set(found)
        return max((self.entries[entry] for entry in found), default=0)
