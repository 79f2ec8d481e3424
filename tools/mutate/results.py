"""What is known of each file's faults, and the tables made of it."""

import hashlib
import json

import workshop

KNOWN = workshop.ROOT / 'tools/mutate/survivors.txt'
FOLDER = workshop.HOME / 'results'
WITH_REASON = 'survives with a reason'


def digest(*paths):
    whole = hashlib.sha256()
    for path in sorted(paths):
        whole.update(path.read_bytes())
    return whole.hexdigest()[:16]


def tests_digest():
    return digest(*(workshop.ROOT / 'tests').glob('*.*'))


def known_survivors():
    """{(file, line's text, fault): reason}, from the form that tools/mutate/survivors.txt tells."""
    known = {}
    file = text = ''
    for line in KNOWN.read_text().splitlines():
        if line.startswith('  '):
            fault, reason = line.strip().split('  # ')
            known[file, text, fault] = reason
        elif line and not line.startswith('#'):
            file, text = line.split(': ', 1)
    return known


def reason_of(file, lines, name, known):
    """Why the fault of this name may survive, if tools/mutate/survivors.txt says so."""
    place, fault = name.split(' ', 1)
    return known.get((file, lines[int(place.split(':')[0]) - 1].strip(), fault))


class Results:
    """The results of one source file. They hold as long as the file is the same; what survived is
    tried again when the tests have changed, but for what survives with a reason."""

    def __init__(self, file):
        self.file = file
        self.path = FOLDER / (file.replace('/', '__') + '.json')
        self.source = digest(workshop.ROOT / file)
        self.tests = tests_digest()
        self.faults = {}
        if self.path.exists():
            old = json.loads(self.path.read_text())
            if old['source'] == self.source:
                self.faults = {
                    name: result for name, result in old['faults'].items()
                    if result['result'] in ('noticed', 'does not build')
                    or (result['result'] != WITH_REASON and old['tests'] == self.tests)}

    def pass_over(self, faults):
        """Takes those that survive with a reason for tried, and forgets what is no fault any more."""
        names = {fault.name for fault in faults}
        self.faults = {name: result for name, result in self.faults.items() if name in names}
        known = known_survivors()
        lines = (workshop.ROOT / self.file).read_text().splitlines()
        for fault in faults:
            if fault.name not in self.faults and reason_of(self.file, lines, fault.name, known):
                self.faults[fault.name] = {'result': WITH_REASON}
        self.save()

    def put(self, fault, result):
        self.faults[fault.name] = result
        self.save()

    def save(self):
        FOLDER.mkdir(parents=True, exist_ok=True)
        text = json.dumps({'file': self.file, 'source': self.source, 'tests': self.tests,
                           'faults': self.faults}, indent=1)
        partial = self.path.with_suffix('.partial')
        partial.write_text(text)
        partial.rename(self.path)


def survivors(file, faults, known):
    """The names of the faults that no test noticed and that have no reason."""
    lines = (workshop.ROOT / file).read_text().splitlines()
    return [name for name, result in faults.items()
            if result['result'] in ('survived', 'unreached') and not reason_of(file, lines, name, known)]


def table():
    """A line for each folder: faults, noticed, survivors with a reason and without, and the score."""
    known = known_survivors()
    rows = {}
    for path in sorted(FOLDER.glob('*.json')):
        kept = json.loads(path.read_text())
        tried = {n: r for n, r in kept['faults'].items() if r['result'] != 'does not build'}
        noticed = sum(r['result'] == 'noticed' for r in tried.values())
        left = len(survivors(kept['file'], tried, known))
        row = rows.setdefault(kept['file'].split('/')[0], [0, 0, 0, 0])
        for i, count in enumerate((len(tried), noticed, len(tried) - noticed - left, left)):
            row[i] += count
    rows['together'] = [sum(column) for column in zip(*rows.values())] if rows else [0, 0, 0, 0]
    lines = [f'{"folder":12} {"faults":>7} {"noticed":>8} {"reason":>7} {"survive":>8} {"score":>6}']
    for folder, (faults, noticed, reason, left) in rows.items():
        score = f'{100 * noticed / faults:.0f} %' if faults else ''
        lines.append(f'{folder:12} {faults:7} {noticed:8} {reason:7} {left:8} {score:>6}')
    return '\n'.join(lines)
