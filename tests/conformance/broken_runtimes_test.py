#!/usr/bin/env python3
"""The conformance kit detects every deliberate mistake of a runtime, and each requirement detects one.

A runtime that crashes, hangs, exits or ends its thread gets a verdict on every requirement all the same.
"""

import json
import os
import pathlib
import re
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as xml
from concurrent.futures import ThreadPoolExecutor

PROGRAM = os.environ["QUEN_IO_BROKEN_RUNTIME"]
TEMPLATE = os.environ["QUEN_IO_CONFORMANCE_TEMPLATE"]
LINE = re.compile(r"(met     |NOT MET |advice  |expected|NOW MET |skipped ) (.*)")
UNMET = ("NOT MET", "advice")

# Sanitizers turn signals into an exit, and the undefined-behaviour sanitizer objects to catch clauses for
# pthread_exit, those of libstdc++ too.
SANITIZED = any(name in pathlib.Path(PROGRAM).read_bytes() for name in (b"__asan_init", b"__tsan_init"))
SANITIZERS_END = r"|exited with status (1|66) without an answer" if SANITIZED else ""

# In a sanitized build each fatal runtime takes seconds, so only every sixth is run.
FATAL_STEP = 6 if SANITIZED else 1

# How long a hanging runtime is waited for. Only hanging ones need it.
PATIENCE = ["--patience", "1"]

# How the kit describes the end of each fatal runtime.
ENDS = {
    "runtimeFsPath reads from null": r"signal 11 ",
    "visiblePathString hangs on other threads": r"8 of 8 threads did not come back",
    "allocString aborts for no bytes": r"signal 6 ",
    "allocString never returns with 1 MiB": r"no answer within 1000 ms",
    "typed path divides by zero for the empty path": r"signal 8 ",
    "filePathFromObject prints and exits for null": r"exited with status 0 without an answer",
    "pathEntryKind stops the process for devices": r"no answer within 1000 ms",
    "cachePathEntryKind closes all descriptors": r"exited with status 1 without an answer",
    "pathExists ends the thread": r"an operation ended its thread",
    "readByteArrayData kills the process for null": r"signal 9 ",
    "writeByteArrayData ends other threads": r"an operation ended its thread",
    "allocObject recurses without end": r"signal 11 ",
    "setField exits": r"exited with status 3 without an answer",
    "isInstanceOf terminates for null": r"signal 6 ",
    "add never returns with 5,000 elements": r"no answer within 1000 ms",
    "raise calls the module": r"1 of 1 threads did not come back",
    "raise flushes the writer that failed": r"1 of 1 threads did not come back",
    "adapter waits with the global lock held": r"the adapter needs beforeWaiting",
}


class Run:
    """The report of the kit about a runtime with the mistake, or without one."""

    def __init__(self, mistake=None, *options, program=PROGRAM, adapter=None):
        environment = {**os.environ, "ASAN_OPTIONS": "symbolize=0", "TSAN_OPTIONS": "symbolize=0"}
        if mistake:
            environment["QUEN_IO_BROKEN"] = mistake
        if adapter:
            environment["QUEN_IO_ADAPTER"] = adapter
        result = subprocess.run([program, *options], capture_output=True, env=environment, timeout=300)
        self.mistake = mistake
        self.status = result.returncode
        self.errors = result.stderr.decode(errors="replace")
        self.output = result.stdout.decode()
        *self.lines, self.summary = self.output.splitlines() or [""]

    def all(self, *statuses):
        """The requirements, with what follows, in the lines that begin with one of the statuses."""
        matches = map(LINE.fullmatch, self.lines)
        return [match[2] for match in matches if match and match[1].strip() in statuses]


def fatal_run(mistake):
    return Run(mistake, *PATIENCE)


def harmless_run(mistake):
    return Run(mistake, "--one-process")


def names(option):
    return subprocess.run([PROGRAM, option], capture_output=True, check=True).stdout.decode().splitlines()


class Kit(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.right = Run()
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            broken = pool.map(harmless_run, names("--broken"))
            fatal = pool.map(fatal_run, names("--fatal")[::FATAL_STEP])
            cls.broken = list(broken)
            cls.fatal = list(fatal)

    def assert_told(self, run, exit_status):
        """Checks that each requirement has a line, and that the summary counts them."""
        self.assertEqual(run.status, exit_status, run.errors)
        self.assertEqual(len(run.lines), len(self.right.lines))
        self.assertEqual(
            run.summary.split(", ")[:2],
            [f"{len(run.lines)} requirements", f"{len(run.all('NOT MET'))} not met"],
        )

    def test_accepts_a_runtime_without_a_mistake(self):
        self.assertGreaterEqual(len(self.right.lines), 40)
        self.assertEqual(self.right.all("met"), [line[9:] for line in self.right.lines])
        self.assert_told(self.right, 0)

    def test_accepts_it_in_one_process(self):
        run = Run(None, "--one-process")

        self.assertEqual(run.output, self.right.output)
        self.assertEqual(run.status, 0)

    def test_notices_every_mistake(self):
        self.assertGreaterEqual(len(self.broken), 20)
        for run in self.broken:
            with self.subTest(run.mistake):
                self.assertNotEqual(run.all(*UNMET), [])
                self.assertEqual(run.errors, "")
                self.assert_told(run, 1 if run.all("NOT MET") else 0)

    def test_answers_every_requirement_to_a_runtime_that_crashes_or_hangs(self):
        self.assertGreaterEqual(len(ENDS), 10)
        self.assertEqual(names("--fatal"), list(ENDS))
        for run in self.fatal:
            with self.subTest(run.mistake):
                self.assert_told(run, 1)
                self.assertTrue(
                    any(re.search(ENDS[run.mistake] + SANITIZERS_END, line) for line in run.all(*UNMET)),
                    run.output,
                )
                self.assertGreater(len(run.all("met")), len(run.lines) * 3 / 4, run.output)

    def test_has_no_requirement_that_every_mistake_meets(self):
        requirements = set(self.right.all("met"))
        for run in self.broken + self.fatal:
            requirements &= set(run.all("met"))
        self.assertEqual(requirements, set())

    def test_is_not_met_by_the_template_as_it_stands(self):
        template = Run(program=TEMPLATE)

        self.assertNotEqual(template.all("skipped"), [])
        self.assert_told(template, 1)


class Options(unittest.TestCase):
    CRASH = "runtimeFsPath reads from null"
    SUBJECT = "Quen_runtimeFsPath"
    REQUIREMENT = "Quen_runtimeFsPath gives the empty path for null text"
    ADVICE = "quen_collections_ArrayList_add keeps the very object"

    def expecting(self, text, mistake, *options):
        """A run with a file of expected failures."""
        with tempfile.NamedTemporaryFile("w", suffix=".txt") as file:
            file.write(text)
            file.flush()
            return Run(mistake, self.SUBJECT, "--expected", file.name, *options)

    def test_json_tells_what_the_text_tells(self):
        text = Run(self.CRASH, self.SUBJECT)
        report = Run(self.CRASH, self.SUBJECT, "--format", "json")

        document = json.loads(report.output)
        self.assertEqual(report.status, 1)
        self.assertEqual(document["summary"]["requirements"], len(text.lines))
        self.assertEqual(document["summary"]["not met"], 1)
        unmet = [each for each in document["requirements"] if each["result"] == "not met"]
        self.assertEqual([each["requirement"] for each in unmet], [self.REQUIREMENT])
        self.assertEqual(unmet[0]["severity"], "needed")
        self.assertIn(unmet[0]["message"], text.output)

    def test_junit_has_a_test_case_for_each_requirement(self):
        report = Run(self.CRASH, self.SUBJECT, "--format=junit")

        suite = xml.fromstring(report.output)
        self.assertGreater(len(suite.findall("testcase")), 1)
        self.assertEqual(int(suite.get("tests")), len(suite.findall("testcase")))
        self.assertEqual(suite.get("failures"), "1")
        failed = [case.get("name") for case in suite.iter("testcase") if case.find("failure") is not None]
        self.assertEqual(failed, [self.REQUIREMENT])

    def test_reports_escape_what_the_runtime_says(self):
        mistake, words = "visiblePathString drops what is not ASCII", "leads back"
        text = Run(mistake, words)

        document = json.loads(Run(mistake, words, "--format", "json").output)
        suite = xml.fromstring(Run(mistake, words, "--format", "junit").output)

        message = text.all("NOT MET")[0].split(": ", 1)[1]
        self.assertIn("\\xFF", message)
        self.assertEqual(document["requirements"][0]["message"], message)
        self.assertEqual(suite.find("testcase/failure").get("message"), "not met: " + message)

    def test_what_a_runtime_prints_does_not_disturb_the_report(self):
        report = Run("filePathFromObject prints and exits for null", "for null", "--format", "json")

        self.assertEqual(json.loads(report.output)["summary"]["not met"], 1)
        self.assertIn("null has no text", report.errors)

    def test_an_expected_failure_is_no_failure(self):
        run = self.expecting(f"# a comment\n\n{self.REQUIREMENT} | not written yet\n", self.CRASH)

        self.assertEqual(run.status, 0, run.output)
        self.assertEqual(run.all("expected"), [self.REQUIREMENT + ": not written yet"])

    def test_an_expected_failure_that_is_met_is_a_failure(self):
        run = self.expecting(f"{self.REQUIREMENT} | not written yet\n", None)

        self.assertEqual(run.status, 1)
        self.assertEqual(run.all("NOW MET"), [self.REQUIREMENT + ": not written yet"])

    def test_an_expected_failure_needs_a_reason_and_a_requirement(self):
        for text, message in {
            self.REQUIREMENT: ":1: no reason; write REQUIREMENT | REASON",
            f"\n{self.REQUIREMENT} | ": ":2: no reason; write REQUIREMENT | REASON",
            "Quen_raise flies | soon": ":1: no requirement: Quen_raise flies",
        }.items():
            with self.subTest(text):
                run = self.expecting(text, None)
                self.assertEqual(run.status, 2)
                self.assertEqual(run.output, "")
                self.assertIn(message, run.errors)

    def test_advice_fails_only_if_strict(self):
        mistake, words = "add keeps a copy", "quen_collections_ArrayList_add"
        lax, strict = Run(mistake, words), Run(mistake, words, "--strict")

        self.assertEqual((lax.status, strict.status), (0, 1))
        self.assertEqual(lax.all("advice"), strict.all("NOT MET"))
        self.assertEqual(lax.all("advice"), [self.ADVICE + ": another object"])

    def test_words_choose_requirements(self):
        run = Run(None, "Quen_hasPendingError", "an empty list")

        self.assertEqual(run.status, 0)
        self.assertEqual(len(run.lines), 4, run.output)
        self.assertTrue(run.summary.startswith("4 requirements"))

    def test_list_names_every_requirement_with_its_severity(self):
        listed = Run(None, "--list").output.splitlines()

        self.assertEqual([line[9:] for line in listed], Run(None, "--one-process").all("met"))
        self.assertIn("advised  " + self.ADVICE, listed)
        self.assertEqual({line[:9].strip() for line in listed}, {"needed", "advised"})

    def test_help_names_every_option(self):
        run = Run(None, "--help")

        self.assertEqual(run.status, 0)
        for option in ["list", "format", "expected", "strict", "patience", "one-process", "help"]:
            self.assertIn(f"\n  --{option} ", run.output)

    def test_usage_errors_are_told(self):
        for options, message in {
            ("--format", "yaml"): "no format: yaml",
            ("--patience", "soon"): "no number of seconds: soon",
            ("--patience", "0"): "no number of seconds: 0",
            ("--expected", "/nowhere"): "cannot read /nowhere",
            ("--unknown",): "see --help",
        }.items():
            with self.subTest(options):
                run = Run(None, *options)
                self.assertEqual((run.status, run.output), (2, ""))
                self.assertIn(message, run.errors)


class Adapters(unittest.TestCase):
    def test_a_global_lock_that_is_given_up_passes(self):
        run = Run(adapter="global lock")

        self.assertEqual(run.status, 0, run.output)
        self.assertEqual(len(run.all("met")), len(run.lines))

    def test_one_thread_skips_what_needs_several(self):
        run = Run(None, "--one-process", adapter="one thread")

        self.assertEqual(run.status, 0, run.output)
        skipped = run.all("skipped")
        self.assertEqual(len(skipped), 5, run.output)
        self.assertTrue(all(line.endswith(": the runtime has one thread only") for line in skipped))

    def test_the_patience_of_the_adapter_ends_the_wait(self):
        run = Run("add never returns with 5,000 elements", "10,000 elements", adapter="impatient")

        self.assertIn("no answer within 300 ms", run.output)

    def test_the_adapter_is_told_of_each_fork(self):
        forked = Run(None, "Quen_allocString", adapter="told of forks")
        one_process = Run(None, "Quen_allocString", "--one-process", adapter="told of forks")

        self.assertEqual(forked.errors.splitlines(), ["forked"] * len(forked.lines))
        self.assertEqual(one_process.errors, "")

    def test_handles_that_differ_are_not_taken_for_different_objects(self):
        run = Run("add keeps a copy", "quen_collections_ArrayList_add", adapter="handles")

        self.assertEqual(run.status, 0, run.output)
        self.assertEqual(run.all("skipped"), [Options.ADVICE + ": the adapter has no sameObject"])


if __name__ == "__main__":
    unittest.main()
