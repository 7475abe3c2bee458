#!/usr/bin/env python3
"""Runs the steps of the CI job that docs/workbench/ci.md shows, and scripts/baseline: ci_job.py CI_MD VORNA_KERNELS
WFTA_HOST

They run in a directory that stands for a repository's checkout after its build, as GitHub's runner does it: each step
by "bash -e", and after a failed step only those that ask for it. Without PyYAML the exit status is 77, with the reason.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

try:
    import yaml
except ImportError:
    print("skipped: no python3-yaml on this machine")
    sys.exit(77)

DOCUMENT, VORNA_KERNELS, WFTA_HOST = map(os.path.abspath, sys.argv[1:4])
ALWAYS = "${{ !cancelled() }}"
BASELINE = "examples/wfta_host/kernels.baseline"


def read_steps():
    with open(DOCUMENT, encoding="utf-8") as file:
        document = yaml.safe_load(re.search(r"```yaml\n(.*?)```", file.read(), re.DOTALL)[1])
    (job,) = document["jobs"].values()
    return job["steps"]


class Checkout:
    """A directory in which the job runs. `host` is a script in place of the example host; "$HOST" is the real one."""

    def __init__(self, test, host='exec "$HOST" "$@"'):
        directory = tempfile.TemporaryDirectory()
        test.addCleanup(directory.cleanup)
        self.path = directory.name
        self.outputs = {}
        self.statuses = {}
        for name in ("scripts", "build/workbench/workbench", "build/workbench/examples/wfta_host",
                     "examples/wfta_host"):
            os.makedirs(self.file(name))
        self.write("scripts/workbench", 'exec build/workbench/workbench/vorna-kernels "$@"')
        self.write("build/workbench/workbench/vorna-kernels", f'exec {VORNA_KERNELS} "$@"')
        self.write("build/workbench/examples/wfta_host/wfta_host", f"HOST={WFTA_HOST}\n{host}")
        self.environment = {"PATH": os.environ["PATH"], "HOME": self.path, "CI": "true",
                            "GITHUB_PATH": self.file("path"), "GITHUB_STEP_SUMMARY": self.file("summary")}
        self.bless()

    def file(self, name):
        return os.path.join(self.path, name)

    def text(self, name):
        with open(self.file(name), encoding="utf-8") as file:
            return file.read()

    def write(self, name, script):
        with open(self.file(name), "w", encoding="utf-8") as file:
            file.write(f"#!/bin/bash\n{script}\n")
        os.chmod(self.file(name), 0o755)

    def bless(self):
        """Returns the baseline of the kernels that the host generates."""
        dumps = self.file("blessed")
        os.mkdir(dumps)
        environment = {"PATH": os.environ["PATH"], "VORNA_WFTA_DUMP_KERNEL": ""}
        subprocess.run([WFTA_HOST, "10", "20", "24", "1008", "5040"], cwd=dumps, env=environment, check=True,
                       stdout=subprocess.DEVNULL)
        subprocess.run([VORNA_KERNELS, "baseline", "bless", "--all", self.file(BASELINE), dumps], check=True,
                       stdout=subprocess.DEVNULL, env={"PATH": os.environ["PATH"]})

    def run(self, steps):
        failed = False
        for step in steps:
            if "run" not in step or (failed and step.get("if") != ALWAYS):
                continue
            result = subprocess.run(["bash", "-e", "-c", step["run"]], cwd=self.path, env=self.environment, text=True,
                                    capture_output=True, check=False)
            self.outputs[step["name"]] = result.stdout + result.stderr
            self.statuses[step["name"]] = result.returncode
            failed = failed or result.returncode != 0
            if os.path.exists(self.file("path")):
                added = self.text("path").split()
                self.environment["PATH"] = ":".join(reversed(added)) + ":" + os.environ["PATH"]
        return failed


class CiJob(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.steps = read_steps()

    def test_steps_have_the_form_that_github_expects(self):
        for step in self.steps:
            self.assertEqual(len({"uses", "run"} & step.keys()), 1, step)
            self.assertLessEqual(step.keys(), {"name", "uses", "run", "if", "with"})
            if "uses" in step:
                self.assertRegex(step["uses"], r"^actions/[a-z-]+@v\d+$")
            else:
                self.assertIn("name", step)
            self.assertIn(step.get("if", ALWAYS), (ALWAYS,))

    def test_unchanged_kernels_pass(self):
        checkout = Checkout(self)
        self.assertFalse(checkout.run(self.steps), checkout.outputs)
        self.assertEqual(set(checkout.statuses.values()), {0})
        self.assertEqual(len(checkout.statuses), 5)
        self.assert_artefact(checkout)

    def test_changed_kernels_fail_and_leave_the_report(self):
        # Changes a constant of one kernel, and the last word of another to a NOP.
        checkout = Checkout(self, """"$HOST" "$@"
            change() { # FILE SECTION OFFSET BYTES
                local begin=$(readelf -SW $1 | sed -nE "s/.* \\\\$2 +PROGBITS +\\S+ (\\S+) .*/\\1/p")
                printf "$4" | dd of=$1 bs=1 seek=$((16#$begin + $3)) conv=notrunc status=none
            }
            change wfta_short_7 .rodata.wfta_short_7 24 '\\377'
            change wfta_short_5 .text.wfta_short_5 180 '\\037\\040\\003\\325'""")
        self.assertTrue(checkout.run(self.steps))
        self.assertEqual(checkout.statuses, {
            "Build the generator and vorna-kernels": 0,
            "Generate the kernels": 0,
            "Check them": 1,
            "Compare them with the baseline": 1,
            "Make the report": 0,
        }, checkout.outputs)
        self.assertIn("::error title=wfta_short_5", checkout.outputs["Check them"])
        lines = checkout.text(BASELINE).splitlines()
        for kernel, what in (("wfta_short_5", "code"), ("wfta_short_7", "constants")):
            (line,) = [i for i, text in enumerate(lines, 1) if kernel in text]
            self.assertRegex(checkout.outputs["Compare them with the baseline"],
                             rf"::error file={BASELINE},line={line},title={kernel}::.*{what}")
            self.assertRegex(checkout.text("summary"), rf"(?m)^\|.*{kernel}.*{what}")
        self.assert_artefact(checkout)

    def test_wrong_results_fail_and_kernels_are_still_compared(self):
        checkout = Checkout(self, '"$HOST" "$@"; exit 1')
        self.assertTrue(checkout.run(self.steps))
        self.assertEqual(list(checkout.statuses.values()), [0, 1, 0, 0, 0], checkout.outputs)
        self.assert_artefact(checkout)

    def test_check_explains_why_the_finaliser_aborted_the_host(self):
        checkout = Checkout(self, 'ulimit -c 0; "$HOST" --break "$@"; exit $?')
        self.assertTrue(checkout.run(self.steps))
        self.assertEqual(list(checkout.statuses.values()), [0, 134, 1, 1, 0], checkout.outputs)
        self.assertIn("::error title=wfta_10", checkout.outputs["Check them"])
        self.assert_artefact(checkout)

    def assert_artefact(self, checkout):
        (upload,) = [step for step in self.steps if step.get("uses", "").startswith("actions/upload-artifact")]
        for path in upload["with"]["path"].split():
            self.assertTrue(os.path.exists(checkout.file(path)), path)
        self.assertIn("<!DOCTYPE html>", checkout.text("kernels.html"))


class BaselineScript(unittest.TestCase):
    def run_script(self, host):
        checkout = Checkout(self, host)
        shutil.copy(os.path.join(os.path.dirname(DOCUMENT), "../../scripts/baseline"), checkout.file("scripts"))
        result = subprocess.run([checkout.file("scripts/baseline")], cwd="/", env=checkout.environment, text=True,
                                capture_output=True, check=False)
        return result.returncode, result.stdout, result.stderr

    def test_the_same_kernels_pass(self):
        self.assertEqual(self.run_script('exec "$HOST" "$@"'), (0, "13 kernels: 13 same\n", ""))

    def test_changed_kernels_are_compared(self):
        status, output, errors = self.run_script('"$HOST" "$@"; rm wfta_10; exit 1')
        self.assertEqual(status, 1)
        self.assertIn(f"{BASELINE}:2: wfta_10: not in the dumps, 51 instructions\n", output)
        self.assertEqual(errors, "scripts/baseline: the kernels' results are not those of FFTW\n")

    def test_a_host_that_exits_early_is_an_error(self):
        status, output, errors = self.run_script("exit 134")
        self.assertEqual((status, output), (2, ""))
        self.assertEqual(errors, "scripts/baseline: wfta_host ended with exit status 134; its kernels until then are in"
                         " build/workbench/kernels\n")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
