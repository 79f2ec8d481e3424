"""Runs the tests on faults."""

import concurrent.futures
import contextlib
import itertools
import os
import pathlib
import re
import resource
import subprocess
import tempfile
import threading

import workshop

REACHED_BYTES = 8 + 16384
BATCH_SECONDS = 2.0  # of the processor, for the tests of one process
STILL_SECONDS = 30  # a process that uses none for so long waits for ever
OTHERS_SECONDS = 12.0  # for the tests that reach a fault and do not bear on its file
SLOW_SECONDS = 4.0  # tests that take longer run only where asked for
WALK = 'WalkTest'  # one day of everything: notices half of all faults in a second, so it goes first
# Of the tests that there are for each version of Windows, those of these run only where asked for: a fault
# that the first and the tenth version let live is seldom noticed by another.
SELDOM = ('_on_8_1', '_on_11')


def suites_of(file):
    """The suites of the tests that bear on a file: those of its folder, and those of its own line. They are
    the first to be run; the others that reach a fault follow."""
    names = set()
    for line in (workshop.ROOT / 'tests/bears_on.txt').read_text().splitlines():
        if not line.startswith((f'{file.split("/")[0]}:', f'{file}:')):
            continue
        for tests in line.split(':')[1].split():
            text = (workshop.ROOT / f'tests/{tests}_test.cpp').read_text()
            names.update(re.findall(r'^TEST(?:_F|_P)?\((\w+),', text, re.MULTILINE))
    if not names:
        raise SystemExit(f'mutate: {file} has no tests in tests/bears_on.txt')
    return names


def suite_of(test):
    """`All/SomeTest.Name/1` is of SomeTest."""
    *before, last = test.split('.')[0].split('/')
    return last if last.endswith('Test') or not before else before[0]


def all_tests():
    tests, suite = [], ''
    for line in workshop.run([workshop.TESTS, '--gtest_list_tests']).splitlines():
        name = line.split('#')[0].rstrip()
        if line.startswith(' '):
            tests.append(suite + name.strip())
        else:
            suite = name
    return tests


def kill_if_still(process, over):
    """Ends a process that uses no processor time for long. One that can run gets some on any host."""
    used, still = None, 0
    while not over.wait(1):
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            fields = pathlib.Path(f'/proc/{process.pid}/stat').read_text().rsplit(')', 1)[1].split()
            used, before = fields[11:13], used
            still = still + 1 if used == before else 0
        if still > STILL_SECONDS:
            process.kill()
            return


class Run:
    """One process of tests."""

    def __init__(self, tests, seconds, **variables):
        # The processor time is a last resort, for loops without a question in them, and so is that
        # it stands still, for threads that wait for one another outside the virtual PC.
        limit = int(60 + 20 * seconds)
        with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryFile() as output:
            process = subprocess.Popen(
                [workshop.TESTS, f'--gtest_filter={":".join(tests)}', '--gtest_fail_fast'],
                env={**os.environ, 'TMPDIR': folder, **variables}, cwd=folder, stdout=output,
                stderr=subprocess.STDOUT,
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CPU, (limit, limit)))
            over = threading.Event()
            watch = threading.Thread(target=kill_if_still, args=(process, over))
            watch.start()
            _, self.code, used = os.wait4(process.pid, 0)
            process.returncode = self.code
            over.set()
            watch.join()
            output.seek(0)
            self.output = output.read().decode(errors='replace')
        # Of the processor, so that a busy host changes nothing.
        self.seconds = used.ru_utime + used.ru_stime

    def failed_test(self):
        failed = re.findall(r'^\[  FAILED  \] ([\w/.]+)', self.output, re.MULTILINE)
        began = re.findall(r'^\[ RUN      \] ([\w/.]+)', self.output, re.MULTILINE)
        return failed[0] if failed else began[-1] if began else 'the start'

    def message(self):
        """What the failing test says first."""
        found = re.search(r': Failure\n(.*?)\n(?:\n|\[)', self.output, re.DOTALL)
        return ' '.join((found[1] if found else self.output[-300:]).split())[:300]


class Test:
    def __init__(self, name, run, bits):
        self.name = name
        self.suite = suite_of(name)
        self.seconds = run.seconds
        self.questions = int.from_bytes(bits[:8], 'little')
        self.reached = {number for number, bit in enumerate(bits[8:]) if bit}


class Trial:
    """The tests, and which of the faults in some files each of them reaches."""

    def __init__(self, files, workers, slow, without):
        self.suites = {file: suites_of(file) for file in files}
        names = [name for name in all_tests() if not without or not re.search(without, name)]
        with concurrent.futures.ThreadPoolExecutor(workers) as pool:
            tests = [test for test in pool.map(self.record_one, names) if test]
        self.tests = sorted((t for t in tests if slow or (t.seconds <= SLOW_SECONDS
                                                          and not t.name.endswith(SELDOM))),
                            key=lambda t: t.seconds)

    def record_one(self, name):
        """Runs a test without a fault. One that fails then is of no use."""
        with tempfile.NamedTemporaryFile() as reached:
            reached.write(bytes(REACHED_BYTES))
            reached.flush()
            run = Run([name], 10, HOLV_FAULTS_REACHED=reached.name)
            bits = pathlib.Path(reached.name).read_bytes()
        if run.code:
            print(f'  left out, because it fails without a fault: {name}', flush=True)
            return None
        return Test(name, run, bits)

    def batches(self, tests):
        batch, seconds = [], 0.0
        for test in tests:
            if batch and (seconds + test.seconds > BATCH_SECONDS or batch[0].suite == WALK):
                yield batch
                batch, seconds = [], 0.0
            batch.append(test)
            seconds += test.seconds
        if batch:
            yield batch

    def try_fault(self, file, fault):
        """The result of a fault: which test noticed it, and what it said."""
        bears, variables = self.suites[file], {}
        if fault.at_build:
            tests = [test for test in self.tests if test.suite in bears]
        else:
            reach = [test for test in self.tests if fault.id in test.reached]
            tests = sorted((test for test in reach if test.suite in bears or test.suite == WALK),
                           key=lambda test: test.suite != WALK)
            others = [test for test in reach if test not in tests]
            spent = itertools.accumulate(test.seconds for test in others)
            tests += [test for test, seconds in zip(others, spent) if seconds <= OTHERS_SECONDS]
            variables = {'HOLV_FAULT': str(fault.id)}
        if not tests:
            return {'result': 'unreached'}
        for batch in self.batches(tests):
            if not fault.at_build:
                most = 10 * sum(test.questions for test in batch) + 100000
                variables['HOLV_FAULT_QUESTIONS'] = str(most)
            run = Run([test.name for test in batch], sum(test.seconds for test in batch), **variables)
            if run.code:
                return {'result': 'noticed', 'by': run.failed_test(), 'says': run.message()}
        return {'result': 'survived', 'tests': len(tests)}
