"""Shows on a small program that each fault behind its question does what it does when it is written out.

Run by `./mutate --self-test`."""

import pathlib
import subprocess
import tempfile
import os

import find
import schema

PROGRAM = r'''
#include <cstdio>
#define TRUE 1
#define FALSE 0
enum Color { red, green, blue };
int g_told;
int g_on = TRUE;
int g_first, g_second;
void Tell(int a, int b) { g_told = g_told * 10 + a * 3 + b; }
bool Log(int level) { return level == 1; }
bool Between(int low, int high, int x) { return low <= x && x < high; }
constexpr int kBuilt = 7;
int Pick(Color color)
{
    if (color == green) return 4;
    return color == blue ? 5 : 6;
}
int Count(int to)
{
    int count = 0;
    for (int i = 0; i < to; ++i) {
        if (Between(2, 5, i)) count += 10;
        Log(1);
    }
    return count;
}
int Now() { return 7; }
int Late(int since) { return Now() - since > 4 ? 1 : 2; }
int Left(int now) { return now > 3 ? now - 3 : 0; }
void Fill(int* x) { *x = 3; }
int Filled()
{
    int filled = 50;
    int counted = 60;
    bool is_set = false;
    Fill(&filled);
    is_set = filled > 1;
    if (is_set) Tell(1, 1);
    g_first = filled;
    g_second = counted;
    Tell(0, 0);
    g_second = 0;
    return g_first + g_second;
}
int main()
{
    Tell(1, 2);
    g_on = FALSE;
    Tell(g_on, kBuilt);
    std::printf("%d %d %d %d %d %d %d %d\n", Filled(), g_told, g_on, Pick(green), Pick(red), Count(6),
                Late(0), Left(5));
}
'''

EXPECTED = {
    'dropped: Tell(1, 2); => ;',
    'dropped: g_on = FALSE; => ;',
    'dropped: count += 10; => ;',
    'order: Tell(1, 2); g_on = FALSE; => g_on = FALSE; Tell(1, 2);',
    'arguments: Tell(1, 2) => Tell(2, 1)',
    'arguments: Between(2, 5, i) => Between(5, 2, i)',
    'comparison: low <= x => low < x',
    'comparison: color == green => color != green',
    'condition: low <= x && x < high => low <= x || x < high',
    'condition: Between(2, 5, i) => !(Between(2, 5, i))',
    'constant: FALSE => TRUE',
    'constant: green => blue',
    'constant: 7 => 8',
    'constant: 60 => 61',
    'comparison: Now() - since > 4 => Now() - since <= 4',
    'order: Fill(&filled); is_set = filled > 1; => is_set = filled > 1; Fill(&filled);',
    'order: Tell(0, 0); g_second = 0; => g_second = 0; Tell(0, 0);',
}
# What changes nothing is none.
EXCLUDED = {
    'constant: 50 => 51',
    'constant: false => true',
    'comparison: Now() - since > 4 => Now() - since >= 4',
    'comparison: now > 3 => now >= 3',
    'order: g_first = filled; g_second = counted; => g_second = counted; g_first = filled;',
}


def output(folder, name, text, runtime, fault=0):
    source = folder / f'{name}.cpp'
    program = folder / name
    if text is not None:
        source.write_text(text)
        subprocess.run(['c++', '-std=c++20', '-w', source, runtime, '-o', program], check=True)
    try:
        return subprocess.run([program], text=True, capture_output=True, check=False, timeout=60,
                              env={**os.environ, 'HOLV_FAULT': str(fault),
                                   'HOLV_FAULT_QUESTIONS': '10000'}).stdout
    except subprocess.TimeoutExpired:
        return 'endless'


def run():
    """The number of faults tried. Raises AssertionError where one is missing or differs."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        source = folder / 'program.cpp'
        source.write_text(PROGRAM)
        faults = find.find(source, ['-std=c++20'])
        for number, fault in enumerate(faults, 1):
            fault.id = number
        found = {f'{fault.kind}: {fault.change}' for fault in faults}
        assert EXPECTED <= found, f'not found: {EXPECTED - found}'
        assert not EXCLUDED & found, f'no faults: {EXCLUDED & found}'
        assert not any('Log(' in fault.change for fault in faults), 'a line of the log is no promise'
        runtime = folder / 'runtime.o'
        subprocess.run(['c++', '-std=c++20', '-c', pathlib.Path(__file__).with_name('runtime.cpp'),
                        '-o', runtime], check=True)
        together = schema.Schema(PROGRAM.encode(), [f for f in faults if not f.at_build]).text()
        plain = output(folder, 'together', together, runtime)
        assert plain == output(folder, 'plain', PROGRAM, runtime), 'without a fault it differs'
        changed = 0
        for fault in faults:
            alone = output(folder, 'alone', schema.with_fault(PROGRAM.encode(), fault), runtime)
            changed += alone != plain
            if not fault.at_build:
                asked = output(folder, 'together', None, runtime, fault.id)
                assert asked == alone, f'{fault.name}: {asked!r} where the text says {alone!r}'
        assert changed > len(faults) / 2, 'most of these faults show'
        return len(faults)
