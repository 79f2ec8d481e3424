"""The copy of the debug build in which faults are built."""

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
PLAIN = ROOT / 'build/debug'
# As long a name as that of the plain build, whose path is in the test programs.
BUILD = ROOT / 'build/fault'
TESTS = BUILD / 'tests/service_tests'
TARGETS = ['HOLVService', 'holvctl', 'service_tests']
OUTPUTS = ['libHOLVService.so', 'libholvctl.so', 'tests/service_tests']
# Other builds on the same host can be told to wait, and the build for them: "flock FILE", "nice".
BUILD_UNDER = shlex.split(os.environ.get('HOLV_BUILD_UNDER', ''))


class DoesNotBuild(Exception):
    pass


def run(command, **options):
    done = subprocess.run(command, text=True, capture_output=True, check=False, **options)
    if done.returncode:
        raise DoesNotBuild(done.stdout + done.stderr)
    return done.stdout


def shell(commands):
    return run(['bash', '-c', 'set -e\n' + '\n'.join(commands)], cwd=BUILD)


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
            run(['cmake', '--preset', 'debug'], cwd=ROOT)
        run([*BUILD_UNDER, 'cmake', '--build', '--preset', 'debug', '--target', *TARGETS], cwd=ROOT)
        # Links to the files, so that the plain build may go on: a compiler writes a new file.
        shutil.rmtree(BUILD, ignore_errors=True)
        run(['cp', '-al', PLAIN, BUILD])
        self.runtime = HOME / 'runtime.o'
        shell([f'c++ -std=c++20 -O1 -fPIC -c {ROOT}/tools/mutate/runtime.cpp -o {self.runtime}'])
        self.links = [self.link_of(target) for target in TARGETS]
        self.commands = json.loads((PLAIN / 'compile_commands.json').read_text())

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

    def build(self, file, text):
        """Compiles and links the copy with this text of a file, without the warnings it may have."""
        source = HOME / 'source' / file
        source.parent.mkdir(parents=True, exist_ok=True)
        source.write_text(text)
        compilations = list(self.compilations(file))
        for _, made in compilations:
            if not made.with_suffix('.whole').exists():
                made.rename(made.with_suffix('.whole'))
            made.unlink(missing_ok=True)
        shell([f'{command} -w' for command, _ in compilations])
        for output in OUTPUTS:
            (BUILD / output).unlink(missing_ok=True)
        shell(self.links)
        program = TESTS.read_bytes()
        TESTS.write_bytes(program.replace(b'/build/debug/libHOLV', b'/build/fault/libHOLV'))

    def build_schema(self, file, faults):
        """Builds all faults of a file at once. Those that cannot stand beside the code they replace
        (in a constant, say) are marked as needing a build of their own."""
        source = (ROOT / file).read_bytes()
        for _ in range(20):
            text = schema.Schema(source, [f for f in faults if not f.at_build]).text()
            for fault in faults:
                fault.at_build = fault.at_build or schema.asked(fault) not in text
            try:
                return self.build(file, text)
            except DoesNotBuild as error:
                self.set_apart(file, text.split('\n'), faults, str(error))
        raise SystemExit(f'mutate: the faults of {file} do not build')

    def set_apart(self, file, lines, faults, errors):
        numbers = [int(n) for n in re.findall(rf'{re.escape(file)}:(\d+):\d+:', errors)]
        apart = set()
        for number in numbers:
            for line in lines[max(0, number - 5):number][::-1]:
                found = [int(n) for n in re.findall(r'HolvFault\((\d+)\)', line)]
                if found:
                    apart.update(found)
                    break
        if not apart:
            raise SystemExit(f'mutate: {file}: {errors}')
        for fault in faults:
            fault.at_build = fault.at_build or fault.id in apart

    def build_one(self, file, fault):
        self.build(file, schema.with_fault((ROOT / file).read_bytes(), fault))

    def restore(self, file):
        """The object of the file without faults, for the next one's build."""
        for _, made in self.compilations(file):
            if made.with_suffix('.whole').exists():
                made.with_suffix('.whole').rename(made)
