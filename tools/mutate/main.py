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
import self_test
import trial
import workshop

FOLDERS = ['service', 'reconciler', 'settings', 'state', 'power', 'audio', 'api', 'restore', 'publish', 'history', 'log', 'process']
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
                        help=f'also run the tests that take more than {trial.SLOW_SECONDS:.0f} s, '
                             'and the scenarios on each version of Windows')
    parser.add_argument('--again', action='store_true', help='try survivors without a reason again')
    parser.add_argument('--without', metavar='TESTS',
                        help='try again what these tests noticed (a regular expression), with all others: '
                             'what would survive if they went. The results stay as they are')
    parser.add_argument('--self-test', action='store_true', help='show that the faults are what they say')
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
    """The faults of some files."""

    def __init__(self, options, shop, work):
        self.options = options
        self.shop = shop
        self.until = time.monotonic() + 60 * options.minutes if options.minutes else None
        self.faults = {file: find.find(workshop.ROOT / file, shop.arguments(file)) for file in work}
        self.known = {file: results.Results(file) for file in work}
        self.due = {file: self.due_of(file, lines) for file, lines in work.items()}
        # A file of which nothing is due is built as it is.
        self.faults = {file: faults for file, faults in self.faults.items() if self.due[file]}
        for number, fault in enumerate((f for faults in self.faults.values() for f in faults), 1):
            fault.id = number

    def due_of(self, file, lines):
        self.known[file].pass_over(self.faults[file])
        known = self.known[file].faults
        if self.options.again:
            known = {n: r for n, r in known.items() if r['result'] not in ('survived', 'unreached')}
        chosen = [f for f in self.faults[file] if not lines or f.line in lines]
        if self.options.sample:
            chosen = sampled(chosen, self.options.sample)
        if self.options.without:
            return [f for f in chosen if re.search(self.options.without, known.get(f.name, {}).get('by', '-'))]
        return [f for f in chosen if f.name not in known]

    def over(self):
        return self.until is not None and time.monotonic() > self.until

    def run(self):
        if not self.faults:
            return
        self.shop.build_all(self.faults, self.options.jobs)
        tests = trial.Trial(list(self.faults), self.options.jobs, self.options.slow, self.options.without)
        due = [(file, fault) for file in self.faults for fault in self.due[file]]
        print(f'{len(due)} faults to try, with {len(tests.tests)} tests', flush=True)
        self.at_once(tests, [pair for pair in due if not pair[1].at_build])
        for file in self.faults:
            apart = [f for f in self.due[file] if f.at_build]
            for fault in sampled(apart, self.options.builds):
                self.by_itself(tests, file, fault)

    def at_once(self, tests, due):
        def one(pair):
            return None if self.over() else tests.try_fault(*pair)
        with concurrent.futures.ThreadPoolExecutor(self.options.jobs) as pool:
            for (file, fault), result in zip(due, pool.map(one, due)):
                if result:
                    self.tell(file, fault, result)

    def by_itself(self, tests, file, fault):
        if self.over():
            return
        try:
            self.shop.build_one(file, fault)
        except workshop.DoesNotBuild:
            self.known[file].put(fault, {'result': 'does not build'})
            return
        self.tell(file, fault, tests.try_fault(file, fault))

    def tell(self, file, fault, result):
        if not self.options.without:
            self.known[file].put(fault, result)
        if result['result'] != 'noticed':
            print(f'  {result["result"]}: {file}:{fault.name}', flush=True)


def main():
    options = arguments()
    if options.table:
        print(results.table())
        return 0
    if options.self_test:
        print(f'{self_test.run()} faults of a small program are what they say')
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
    campaign = Campaign(options, shop, work)
    if options.list:
        for file, faults in campaign.due.items():
            for fault in faults:
                print(f'{file}:{fault.name}')
        return 0
    campaign.run()
    if campaign.over():
        print('mutate: there was no time for all')
    known = results.known_survivors()
    left = 0
    for file, lines in work.items():
        tried = {n: r for n, r in campaign.known[file].faults.items()
                 if not lines or int(n.split(':')[0]) in lines}
        left += len(results.survivors(file, tried, known))
    print(results.table())
    print(f'{left} survive without a reason')
    return 1 if left else 0


if __name__ == '__main__':
    sys.exit(main())
