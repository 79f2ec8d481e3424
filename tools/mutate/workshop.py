"""The copy of the plain build in which faults are built."""

import concurrent.futures
import contextlib
import fcntl
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess

import schema

ROOT = pathlib.Path(__file__).resolve().parents[2]
HOME = ROOT / 'build/mutate'
PLAIN = ROOT / 'build/plain'
# Where the plain build's test programs look for the images.
BUILD = ROOT / 'build/fault'
TESTS = BUILD / 'tests/service_tests'
TARGETS = ['HOLVService', 'holvctl', 'service_tests']
OUTPUTS = ['libHOLVService.so', 'libholvctl.so', 'tests/service_tests']
# A file whose lock is held during builds, where several run on one host (as `flock FILE` does).
BUILD_LOCK = os.environ.get('HOLV_BUILD_LOCK')


class DoesNotBuild(Exception):
    pass


def run(command, **options):
    done = subprocess.run(command, text=True, capture_output=True, check=False, **options)
    if done.returncode:
        raise DoesNotBuild(done.stdout + done.stderr)
    return done.stdout


def shell(command):
    return run(['bash', '-c', command], cwd=BUILD)


@contextlib.contextmanager
def building():
    if not BUILD_LOCK:
        yield
        return
    with open(BUILD_LOCK, 'w', encoding='utf-8') as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


class Workshop:
    """Builds what is missing of the plain build, and holds a copy of it. Never writes into the tree:
    a source file with faults lies in build/mutate/source."""

    def __init__(self):
        HOME.mkdir(parents=True, exist_ok=True)
        self.lock = open(HOME / 'lock', 'w', encoding='utf-8')
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise SystemExit('mutate: another run works in build/mutate') from None
        if not (PLAIN / 'build.ninja').exists():
            run(['cmake', '--preset', 'plain'], cwd=ROOT)
        self.commands = json.loads((PLAIN / 'compile_commands.json').read_text())
        self.runtime = HOME / 'runtime.o'
        self.links = []

    def build_plain(self):
        run(['cmake', '--build', '--preset', 'plain', '--target', *TARGETS], cwd=ROOT)
        # Links to the files, so that the plain build may go on: a compiler writes a new file.
        shutil.rmtree(BUILD, ignore_errors=True)
        run(['cp', '-al', PLAIN, BUILD])
        shell(f'c++ -std=c++20 -O1 -fPIC -c {ROOT}/tools/mutate/runtime.cpp -o {self.runtime}')
        self.links = [self.link_of(target) for target in TARGETS]

    def link_of(self, target):
        """The command that links a target, with the runtime."""
        command = run(['ninja', '-t', 'commands', target], cwd=PLAIN).strip().split('\n')[-1]
        return re.sub(r'( -o \S+)', rf'\1 {self.runtime}', command.replace(str(PLAIN), str(BUILD)), count=1)

    def compilations(self, file):
        """(command, object) of each target that has the file in it."""
        for entry in self.commands:
            if entry['file'] == str(ROOT / file):
                made = re.search(r' -o (\S+)', entry['command'])[1]
                yield entry['command'].replace(f'-c {ROOT}/{file}', f'-c {HOME}/source/{file}'), BUILD / made

    def arguments(self, file):
        """What the compiler is told, for libclang."""
        command, _ = next(self.compilations(file))
        return [a for a in shlex.split(command) if a.startswith(('-D', '-I', '-std'))]

    def compile(self, file, text):
        """Compiles the file with this text, without the warnings it may have."""
        source = HOME / 'source' / file
        source.parent.mkdir(parents=True, exist_ok=True)
        source.write_text(text)
        for command, made in self.compilations(file):
            if not made.with_suffix('.whole').exists():
                made.rename(made.with_suffix('.whole'))
            made.unlink(missing_ok=True)
            shell(f'{command} -w')

    def link(self):
        for output in OUTPUTS:
            (BUILD / output).unlink(missing_ok=True)
        for link in self.links:
            shell(link)

    def build_all(self, faults_of, workers):
        """Builds what is missing of the plain build, and all faults at once, {file: its faults}. Those that cannot stand beside the code they
        replace (in a constant, say) are marked as needing a build of their own."""
        with building(), concurrent.futures.ThreadPoolExecutor(workers) as pool:
            self.build_plain()
            for done in pool.map(lambda pair: self.compile_schema(*pair), faults_of.items()):
                assert done is None
            self.link()

    def compile_schema(self, file, faults):
        source = (ROOT / file).read_bytes()
        if any(source[f.start:f.end].decode() != f.old for f in faults):
            raise SystemExit(f'mutate: {file} has changed since its faults were found')
        for _ in range(20):
            text = schema.Schema(source, [f for f in faults if not f.at_build]).text()
            for fault in faults:
                fault.at_build = fault.at_build or schema.asked(fault) not in text
            try:
                return self.compile(file, text)
            except DoesNotBuild as error:
                set_apart(file, text.split('\n'), faults, str(error))
        raise SystemExit(f'mutate: the faults of {file} do not build')

    def build_one(self, file, fault):
        """Builds a fault that needs a build of its own, with all other files as they are."""
        with building():
            self.restore()
            self.compile(file, schema.with_fault((ROOT / file).read_bytes(), fault))
            self.link()

    def restore(self):
        """The objects without faults."""
        for whole in (BUILD / 'CMakeFiles').rglob('*.whole'):
            whole.rename(whole.with_suffix('.o'))


def set_apart(file, lines, faults, errors):
    """Marks the faults on the lines, or just before them, of which the compiler complains."""
    apart = set()
    for number in re.findall(rf'{re.escape(file)}:(\d+):\d+:', errors):
        for line in lines[max(0, int(number) - 5):int(number) + 1][::-1]:
            found = [int(n) for n in re.findall(r'HolvFault\((\d+)\)', line)]
            if found:
                apart.update(found)
                break
    if not apart:
        raise SystemExit(f'mutate: {file}: {errors}')
    for fault in faults:
        fault.at_build = fault.at_build or fault.id in apart
