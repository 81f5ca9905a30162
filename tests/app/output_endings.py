"""What stays on the disk after each kind of end: pairs of runs in one folder, runs that are killed.

usage: output_endings.py --program PROGRAM [--pairs N] [--kills N] [--seed S]

By hand with --pairs 500 --kills 200.
"""
import argparse
import pathlib
import random
import signal
import subprocess
import sys
import tempfile
import time

parser = argparse.ArgumentParser()
parser.add_argument('--program', required=True)
parser.add_argument('--pairs', type=int, default=6)
parser.add_argument('--kills', type=int, default=8)
parser.add_argument('--seed', type=int, default=random.randrange(2**32))
options = parser.parse_args()
dice = random.Random(options.seed)
NAMES = {'dec': 'Pi - Dec - Chudnovsky', 'hex': 'Pi - Hex - Chudnovsky'}
faults = []


def start(folder, *words):
    return subprocess.Popen([options.program, 'priority:0', 'pause:-2', 'skip-warnings', 'colors:0', 'custom', 'pi', *words],
                            cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


def finish(run):
    output = run.communicate()[0].decode()
    return run.returncode, output


def digit_files(folder):
    return {path.relative_to(folder).as_posix(): path.read_bytes() for path in folder.rglob('Pi - *') if path.is_file()}


def expect(what, truth):
    if not truth:
        faults.append(what)


with tempfile.TemporaryDirectory() as place:
    reference = pathlib.Path(place)
    expect('reference', finish(start(reference, '-dec:300k', '-hex:250k'))[0] == 0)
    good = {radix: (reference / f'{name}.txt').read_bytes() for radix, name in NAMES.items()}
    reference_set = reference / 'set'
    reference_set.mkdir()
    expect('reference of a set', finish(start(reference_set, '-dec:1500k', '-C:1m'))[0] == 0)
    good_set = digit_files(reference_set)

    # Pairs: one of them wins, the other one too or it says why not; what stands there is whole, right and the longest.
    for number in range(options.pairs):
        folder = reference / f'pair{number}'
        folder.mkdir()
        sizes = dice.sample(range(1000, 60000), 2) if dice.random() < 0.8 else [30000, 30000]
        runs = []
        for size in sizes:
            runs.append(start(folder, f'-dec:{size}', '-bbp:0'))
            time.sleep(dice.uniform(0, 0.02))
        ends = [finish(run) for run in runs]
        won = [size for size, (status, _) in zip(sizes, ends) if status == 0]
        what = f'pair {number}, {sizes}, {[status for status, _ in ends]}'
        for status, output in ends:
            expect(what + ': no reason\n' + output, status == 0 or 'Another run' in output or 'It is kept' in output)
        expect(what + ': both lost', won)
        files = digit_files(folder)
        expect(f'{what}: {list(files)}', list(files) == [NAMES['dec'] + '.txt'])
        if won and len(files) == 1:
            expect(what + ': wrong digits', files[NAMES['dec'] + '.txt'] == good['dec'][:max(won) + 2])

    # Kills: a final name stands on whole and proved digits alone, an older file stays until then, and the next run
    # takes away what the killed one left.
    for number in range(options.kills):
        folder = reference / f'kill{number}'
        folder.mkdir()
        is_set = number % 2 == 1
        words = ('-dec:1500k', '-C:1m') if is_set else ('-dec:300k', '-hex:250k')
        older = {}
        if number % 4 == 0:
            expect('older', finish(start(folder, '-dec:1000', '-bbp:0'))[0] == 0)
            older = digit_files(folder)
        run = start(folder, *words)
        time.sleep(dice.uniform(0, 0.7 if is_set else 0.35))
        run.send_signal(signal.SIGKILL)
        output = finish(run)[1]
        for name, content in digit_files(folder).items():
            if '(incomplete)' in name or '(replaced)' in name or older.get(name) == content:
                continue
            what = f'kill {number}: {name}'
            expect(what + ' before its proof', 'Verifying Decimal Output' in output)
            expect(what + ' is wrong', content in (good_set.get(name), good['dec'], good['hex']))
        expect(f'kill {number}: the next run', finish(start(folder, *words, '-overwrite:1'))[0] == 0)
        left = [name for name in digit_files(folder) if '(incomplete)' in name]
        expect(f'kill {number}: {left} is left', not left)

sys.exit('\n'.join([f'seed {options.seed}', *faults]) if faults else 0)
