"""What stays on the disk after each kind of end: one of each, pairs of runs in one folder, runs that are struck down.

usage: output_endings.py --program PROGRAM --faulty PROGRAM [--pairs N] [--kills N] [--seed S]

By hand with --pairs 500 --kills 200.
"""
import argparse
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

parser = argparse.ArgumentParser()
parser.add_argument('--program', required=True)
parser.add_argument('--faulty', required=True)
parser.add_argument('--pairs', type=int, default=6)
parser.add_argument('--kills', type=int, default=6)
parser.add_argument('--seed', type=int, default=random.randrange(2**32))
options = parser.parse_args()
dice = random.Random(options.seed)
NAMES = {'dec': 'Pi - Dec - Chudnovsky', 'hex': 'Pi - Hex - Chudnovsky'}
SET_SIZES = (1000000, 1200000, 1500000)
UNFINISHED = ('(incomplete)', '(replaced)')
faults = []


def start(folder, *words, fault=None):
    environment = {**os.environ, 'ORVANE_TEST_FAULT': fault or ''}
    program = options.faulty if fault else options.program
    return subprocess.Popen([program, 'priority:0', 'pause:-2', 'custom', 'pi', *words], cwd=folder, env=environment,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


def finish(run):
    output = run.communicate()[0].decode()
    return run.returncode, output


def digit_files(folder):
    return {path.relative_to(folder).as_posix(): path.read_bytes() for path in folder.rglob('Pi - *') if path.is_file()}


def unfinished(folder):
    return [name for name in digit_files(folder) if any(note in name for note in UNFINISHED)]


def expect(what, truth):
    if not truth:
        faults.append(what)


class References:
    """What files of so many digits hold, computed once."""

    def __init__(self, folder):
        self.folder, self.sets = folder, {}
        expect('reference', finish(start(folder, '-dec:300k', '-hex:250k'))[0] == 0)
        self.texts = {radix: (folder / f'{name}.txt').read_bytes() for radix, name in NAMES.items()}

    def files(self, words):
        """{name: content} of a run with these words."""
        sizes = {word[1:4]: int(word[5:]) for word in words if word[1:4] in NAMES and word[4] == ':'}
        if not any(word.startswith('-C:') for word in words):
            return {NAMES[radix] + '.txt': self.texts[radix][:size + 2] for radix, size in sizes.items()}
        if tuple(words) not in self.sets:
            folder = self.folder / f'set{len(self.sets)}'
            folder.mkdir()
            expect('reference of a set', finish(start(folder, *words))[0] == 0)
            self.sets[tuple(words)] = digit_files(folder)
        return self.sets[tuple(words)]


# How a run ends and what it is told; its status, whether its digits have their final names and whether a report is there.
# A file of the first digits stood there before: until the run is proved it stays, and a larger one stays altogether.
def each_end(place, good):
    words = ('-dec:200000', '-hex:100000')
    rows = [('done', {}, (), 0, True, True),
            ('digits not wanted', {}, ('-od:0',), 0, False, True),
            ('a larger file stands there', {'older': 250000}, (), 1, False, False),
            ('a larger file is to go', {'older': 250000}, ('-overwrite:1',), 0, True, True),
            ('stored digits differ', {'stored': True}, (), 1, False, True),
            ('the folder goes away', {'at': 'merge result:0', 'folder': 'out'}, ('-o', 'out'), 0, True, True)]
    for site in ('merge result:1:77', 'conversion power:1:63', 'binary number:1:5', 'digit words:0:63', 'digit buffer:0:1',
                 'digit file:0:80001', 'digit file:1:80001'):
        rows.append(('fault in ' + site, {'fault': site}, (), 1, False, False))
    # In the series, behind the conversion, while digits are written, with both files written and not yet proved.
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGKILL):
        for site in ('merge result:0', 'binary number:2', 'digit buffer:1', 'digit file:1'):
            rows.append((f'{number.name} at {site}', {'signal': number, 'at': site}, (), None, False, False))
    for what, how, more, status, named, report in rows:
        folder = place / 'end'
        folder.mkdir()
        older = {NAMES['dec'] + '.txt': good.texts['dec'][:how.get('older', 1000) + 2]}
        for name, content in older.items():
            (folder / name).write_bytes(content)
        if 'stored' in how:
            (folder / 'Digits').mkdir()
            (folder / 'Digits' / 'Pi.txt').write_bytes(good.texts['dec'][:500] + b'x' + good.texts['dec'][501:1002])
        run = start(folder, *words, *more, fault=how.get('fault', f"{how['at']}:stop" if 'at' in how else None))
        if 'at' in how:
            expect(f'{what}: it never came there', os.WIFSTOPPED(os.waitpid(run.pid, os.WUNTRACED)[1]))
            if 'folder' in how:
                shutil.rmtree(folder / how['folder'])
            else:
                run.send_signal(how['signal'])
            os.kill(run.pid, signal.SIGCONT)
        ended, output = finish(run)
        what = f'{what}: status {ended}\n{output}'
        expect(what, ended == status if status is not None else ended != 0)
        files = {name: content for name, content in digit_files(folder).items() if not any(note in name for note in UNFINISHED)}
        new = good.files(words)
        if 'folder' in how:
            new = older | {f"{how['folder']}/{name}": content for name, content in new.items()}
        expect(f'{list(files)} after {what}', files == (new if named else older))
        expect(f'{unfinished(folder)} after {what}',
               not unfinished(folder) or 'stored' in how or how.get('signal') == signal.SIGKILL)
        expect(f'report or none after {what}', bool(list(folder.glob('Validation - *.txt'))) == report)
        shutil.rmtree(folder)


# Pairs: one of them wins, the other one too or it says why not; what stands there is whole, right and the longest.
def words_of_a_pair():
    kind = dice.random()
    if kind < 0.1:
        return [(f'-dec:{dice.choice(SET_SIZES)}', '-C:1m') for _ in range(2)]
    sizes = dice.sample(range(1000, 60000), 2) if dice.random() < 0.8 else [30000, 30000]
    with_hexadecimal = [dice.random() < 0.5 for _ in sizes] if kind < 0.4 else [False, False]
    return [(f'-dec:{size}', *([f'-hex:{size // 2}'] if hexadecimal else []))
            for size, hexadecimal in zip(sizes, with_hexadecimal)]


def pairs(place, good):
    for number in range(options.pairs):
        folder = place / f'pair{number}'
        folder.mkdir()
        words, runs = words_of_a_pair(), []
        for each in words:
            runs.append(start(folder, *each, '-bbp:0'))
            time.sleep(dice.uniform(0, 0.02))
        ends = [finish(run) for run in runs]
        what = f'pair {number}, {words}, {[status for status, _ in ends]}'
        for status, output in ends:
            expect(what + ': no reason\n' + output, status == 0 or 'Another run' in output or 'It is kept' in output)
        won = [good.files(each) for each, (status, _) in zip(words, ends) if status == 0]
        expect(what + ': both lost', won)
        # Each stream is that of the run with more digits, which need not have both; a set stands alone.
        longest = max(won, key=lambda files: sum(map(len, files.values())), default={})
        if '.txt' in ''.join(longest):
            longest = {name: max((files[name] for files in won if name in files), key=len) for files in won for name in files}
        files = digit_files(folder)
        expect(f'{what}: {list(files)}', files == longest)
        shutil.rmtree(folder)


# Kills: a final name stands on whole and proved digits alone, an older file stays until then, and the next run takes away
# what the one before left.
def kills(place, good):
    # Digits, and the seconds that a run takes: at first as it is on a machine that does nothing else, then as it was.
    kinds = {('-dec:300000', '-hex:250000'): 0.2, ('-dec:1500000', '-C:1m'): 0.4, ('-dec:200000',): 0.1,
             ('-dec:1000000', '-hex:1000000', '-C:1m'): 0.4}
    for number in range(options.kills):
        folder = place / f'kill{number}'
        folder.mkdir()
        words = list(kinds)[number % len(kinds)]
        older = {}
        if number % 8 < 3:
            expect('older', finish(start(folder, '-dec:1000', '-bbp:0'))[0] == 0)
            older = digit_files(folder)
        run = start(folder, *words)
        time.sleep(dice.uniform(0, 1.1 * kinds[words]))
        sent = dice.choice([signal.SIGKILL, signal.SIGKILL, signal.SIGINT, signal.SIGTERM])
        run.send_signal(sent)
        output = finish(run)[1]
        expect(f'kill {number}, {sent.name}: {unfinished(folder)} is left', sent == signal.SIGKILL or not unfinished(folder))
        for name, content in digit_files(folder).items():
            if any(note in name for note in UNFINISHED) or older.get(name) == content:
                continue
            what = f'kill {number}, {sent.name}: {name}'
            expect(what + ' before its proof', 'Verifying Decimal Output' in output)
            expect(what + ' is wrong', content == good.files(words).get(name))
        begin = time.monotonic()
        status, output = finish(start(folder, *words, '-overwrite:1'))
        kinds[words] = time.monotonic() - begin
        expect(f'kill {number}: the next run\n{output}', status == 0)
        expect(f'kill {number}: {unfinished(folder)} is left', not unfinished(folder))
        shutil.rmtree(folder)


with tempfile.TemporaryDirectory() as root:
    references = References(pathlib.Path(root))
    for step in (each_end, pairs, kills):
        step(pathlib.Path(root), references)

sys.exit('\n'.join([f'seed {options.seed}', *faults]) if faults else 0)
