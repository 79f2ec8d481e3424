"""The copy of the tree in which faults are built."""

import fcntl
import json
import os
import pathlib
import re
import shlex
import subprocess

import schema

ROOT = pathlib.Path(__file__).resolve().parents[2]
HOME = ROOT / 'build/mutate'
TREE = HOME / 'tree'
BUILD = TREE / 'build/debug'
TESTS = BUILD / 'tests/service_tests'
TARGETS = ['HOLVService', 'holvctl', 'service_tests']
# Other builds on the same host can be told to wait, and this one for them: "flock FILE", "nice".
BUILDS_UNDER = shlex.split(os.environ.get('HOLV_BUILDS_UNDER', ''))


class DoesNotBuild(Exception):
    pass


def run(command, **options):
    done = subprocess.run(command, text=True, capture_output=True, check=False, **options)
    if done.returncode:
        raise DoesNotBuild(done.stdout + done.stderr)
    return done.stdout


def shell(commands):
    return run([*BUILDS_UNDER, 'bash', '-c', 'set -e\n' + '\n'.join(commands)], cwd=BUILD)


class Workshop:
    """Holds the lock of the copy while it lives."""

    def __init__(self):
        TREE.mkdir(parents=True, exist_ok=True)
        self.lock = open(HOME / 'lock', 'w')
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise SystemExit('mutate: another run works in build/mutate') from None
        self.synchronize()
        if not (BUILD / 'build.ninja').exists():
            run(['cmake', '--preset', 'debug'], cwd=TREE)
        run([*BUILDS_UNDER, 'cmake', '--build', '--preset', 'debug', '--target', *TARGETS], cwd=TREE)
        self.runtime = HOME / 'runtime.o'
        shell([f'c++ -std=c++20 -O1 -fPIC -c {ROOT}/tools/mutate/runtime.cpp -o {self.runtime}'])
        self.links = [self.link_of(target) for target in TARGETS]
        self.commands = json.loads((BUILD / 'compile_commands.json').read_text())

    def synchronize(self):
        """Copies what differs, with a new time, so that the build sees it: also after a fault."""
        files = run(['git', 'ls-files', '-z', '--cached', '--others', '--exclude-standard'], cwd=ROOT)
        present = '\0'.join(f for f in files.split('\0') if f and (ROOT / f).is_file())
        run(['rsync', '-rlpc', '--from0', '--files-from=-', f'{ROOT}/', f'{TREE}/'], input=present)
        kept = set(present.split('\0'))
        for path in TREE.rglob('*.cpp'):
            name = str(path.relative_to(TREE))
            if name not in kept and not name.startswith('build/'):
                path.unlink()

    def link_of(self, target):
        """The command that links a target, with the runtime."""
        last = run(['ninja', '-t', 'commands', target], cwd=BUILD).strip().split('\n')[-1]
        return re.sub(r'( -o \S+)', rf'\1 {self.runtime}', last, count=1)

    def compilations(self, file):
        return [e for e in self.commands if e['file'] == str(TREE / file)]

    def arguments(self, file):
        """What the compiler is told, for libclang."""
        entry = self.compilations(file)[0]
        return [a for a in shlex.split(entry['command'].replace('\\"', '\\"'))
                if a.startswith(('-D', '-I', '-std'))]

    def build(self, file, text):
        """Compiles and links the copy with this text of a file, without the warnings it may have."""
        (TREE / file).write_text(text)
        compile_commands = [e['command'] + ' -w' for e in self.compilations(file)]
        shell(compile_commands)
        shell(self.links)

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
        numbers = [int(n) for n in re.findall(rf'{re.escape(file)}:(\d+):\d+: error', errors)]
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
        """The file as it is, built again."""
        (TREE / file).write_bytes((ROOT / file).read_bytes())
