"""The command line of ./mutate."""

import argparse
import concurrent.futures
import hashlib
import os
import re
import sys
import time

import find
import results
import trial
import workshop

FOLDERS = ['service', 'reconciler', 'settings', 'state', 'power', 'audio', 'api', 'restore', 'log', 'process']
MINUTES_FOR_A_CHANGE = 9


def arguments():
    parser = argparse.ArgumentParser(prog='./mutate', description=(
        'Makes one-line faults in the code, and says which of them no test notices.'))
    parser.add_argument('paths', nargs='*', metavar='FILE|FOLDER')
    parser.add_argument('--changed', action='store_true', help='the lines that differ from --base')
    parser.add_argument('--base', default='main', help='the branch to compare with (main)')
    parser.add_argument('--table', action='store_true', help='only show what is known')
    parser.add_argument('--list', action='store_true', help='only list the faults')
    parser.add_argument('--jobs', type=int, default=os.cpu_count(), help='processes of tests at once')
    parser.add_argument('--minutes', type=float, help='try no further fault after so many')
    parser.add_argument('--builds', type=int, default=4,
                        help='how many faults of a file are tried that need a build of their own (4)')
    parser.add_argument('--sample', type=int, help='try so many faults of each file, the same every time')
    parser.add_argument('--slow', action='store_true',
                        help=f'also run the tests that take more than {trial.SLOW_SECONDS:.0f} s')
    parser.add_argument('--again', action='store_true', help='try survivors again')
    return parser.parse_args()


def files_of(paths):
    for path in paths:
        path = path.rstrip('/')
        if (workshop.ROOT / path).is_dir():
            yield from sorted(str(p.relative_to(workshop.ROOT)) for p in (workshop.ROOT / path).glob('*.cpp'))
        else:
            yield path


def changed_lines(base):
    """file => the numbers of its lines that differ from the branch."""
    fork = workshop.run(['git', 'merge-base', base, 'HEAD'], cwd=workshop.ROOT).strip()
    changes = workshop.run(['git', 'diff', '-U0', fork, '--', *(f'{f}/*.cpp' for f in FOLDERS)],
                           cwd=workshop.ROOT)
    lines, file = {}, ''
    for line in changes.splitlines():
        if line.startswith('+++ '):
            file = line.removeprefix('+++ b/')
        elif hunk := re.match(r'@@ \S+ \+(\d+)(?:,(\d+))? @@', line):
            first, count = int(hunk[1]), int(hunk[2] or 1)
            lines.setdefault(file, set()).update(range(first, first + count))
    return {file: numbers for file, numbers in lines.items() if numbers and (workshop.ROOT / file).is_file()}


def sampled(faults, count):
    """Some of the faults, the same every time."""
    return sorted(faults, key=lambda f: hashlib.sha256(f.name.encode()).digest())[:count]


class Campaign:
    """The faults of some files, one file after the other."""

    def __init__(self, options, shop):
        self.options = options
        self.shop = shop
        self.trials = {}
        self.until = time.monotonic() + 60 * options.minutes if options.minutes else None

    def over(self):
        return self.until is not None and time.monotonic() > self.until

    def try_file(self, file, lines=None):
        faults = find.find(workshop.ROOT / file, self.shop.arguments(file))
        known = results.Results(file)
        if self.options.again:
            known.faults = {n: r for n, r in known.faults.items() if r['result'] == 'noticed'}
        chosen = [f for f in faults if not lines or f.line in lines]
        if self.options.sample:
            chosen = sampled(chosen, self.options.sample)
        due = [f for f in chosen if f.name not in known.faults]
        if not due:
            return known
        started = time.monotonic()
        self.shop.build_schema(file, faults)
        try:
            folder = file.split('/')[0]
            if folder not in self.trials:
                self.trials[folder] = trial.Trial(folder, self.options.jobs, self.options.slow)
            tests = self.trials[folder].record()
            print(f'{file}: {len(faults)} faults, {len(due)} to try with {tests} tests', flush=True)
            self.at_once(known, [f for f in due if not f.at_build], self.trials[folder])
            done = sum(f.at_build and f.name in known.faults for f in faults)
            self.one_by_one(known, sampled([f for f in due if f.at_build], self.options.builds - done),
                            self.trials[folder], file)
        finally:
            self.shop.restore(file)
        noticed = sum(r['result'] == 'noticed' for r in known.faults.values())
        print(f'{file}: {noticed} of {len(known.faults)} noticed, {time.monotonic() - started:.0f} s', flush=True)
        return known

    def at_once(self, known, faults, tests):
        def one(fault):
            return None if self.over() else tests.try_fault(fault)
        with concurrent.futures.ThreadPoolExecutor(self.options.jobs) as pool:
            for fault, result in zip(faults, pool.map(one, faults)):
                if result:
                    self.tell(known, fault, result)

    def one_by_one(self, known, faults, tests, file):
        for fault in faults:
            if self.over():
                return
            try:
                self.shop.build_one(file, fault)
            except workshop.DoesNotBuild:
                known.put(fault, {'result': 'does not build'})
                continue
            self.tell(known, fault, tests.try_fault(fault))

    def tell(self, known, fault, result):
        known.put(fault, result)
        if result['result'] != 'noticed':
            print(f'  {result["result"]}: {known.file}:{fault.name}', flush=True)


def main():
    options = arguments()
    if options.table:
        print(results.table())
        return 0
    if options.changed:
        options.minutes = options.minutes or MINUTES_FOR_A_CHANGE
        work = changed_lines(options.base)
    else:
        work = {file: None for file in files_of(options.paths or FOLDERS)}
    if not work:
        print('mutate: no line of the service has changed')
        return 0
    shop = workshop.Workshop()
    if options.list:
        for file in work:
            for fault in find.find(workshop.ROOT / file, shop.arguments(file)):
                print(f'{file}:{fault.name}')
        return 0
    campaign = Campaign(options, shop)
    known = results.known_survivors()
    left = 0
    for file, lines in work.items():
        if campaign.over():
            print(f'mutate: no time was left for {file}')
            continue
        done = campaign.try_file(file, lines)
        tried = {n: r for n, r in done.faults.items() if not lines or int(n.split(':')[0]) in lines}
        left += len(results.survivors(file, tried, known))
    print(results.table())
    print(f'{left} survive without a reason')
    return 1 if left else 0


if __name__ == '__main__':
    sys.exit(main())
