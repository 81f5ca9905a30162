"""What a terminal of 80 columns shows: colours where they belong, counted lines while a slow disk is written and read, a
line of the whole run that moves; and of the same lines without a terminal not one escape byte.

usage: terminal.py --program PROGRAM --faulty PROGRAM
"""
import argparse
import os
import pathlib
import pty
import re
import subprocess
import sys
import tempfile
import time

parser = argparse.ArgumentParser()
parser.add_argument('--program', required=True)
parser.add_argument('--faulty', required=True)
options = parser.parse_args()
COLUMNS = 80
faults = []


def expect(what, truth):
    if not truth:
        faults.append(what)


def on_terminal(program, words, folder, keys='', **environment):
    """Status and what appeared: (seconds, text)."""
    ours, theirs = pty.openpty()
    variables = {**os.environ, 'TERM': 'xterm', **environment}
    if 'NO_COLOR' not in environment:
        variables.pop('NO_COLOR', None)
    run = subprocess.Popen([program, 'priority:0', 'pause:-2', *words], cwd=folder, env=variables, stdin=theirs, stdout=theirs,
                           stderr=theirs)
    os.close(theirs)
    os.write(ours, keys.encode())
    seen, begin = [], time.monotonic()
    while True:
        try:
            data = os.read(ours, 65536)
        except OSError:  # the program has gone, and its end of the terminal with it
            break
        if not data:
            break
        seen.append((time.monotonic() - begin, data.decode(errors='replace')))
    os.close(ours)
    return run.wait(), seen


def without_colours(text):
    return re.sub('\x1b\\[[0-9;]*m', '', text)


def check_width(what, text):
    for line in re.split('[\r\n]', without_colours(text)):
        # Names of files and the records of the digits are as long as they are.
        expect(f'{what}: {len(line)} columns: {line}',
               len(line) <= COLUMNS or re.search('^(SHA256-(dec|hex).*= |(Dec|Hex) Counts: |Path: |(Validation|Results) File: )|agree with "', line))


def colours(folder):
    rows = [((), {}, True), ((), {'NO_COLOR': '1'}, False), ((), {'TERM': 'dumb'}, False), (('colors:0',), {}, False),
            (('colors:1',), {'NO_COLOR': '1'}, True), (('colors:1',), {'TERM': 'dumb'}, True)]
    for words, environment, coloured in rows:
        for action in (['about'], ['--help'], ['fly']):
            status, seen = on_terminal(options.program, [*words, *action], folder, **environment)
            text = ''.join(piece for _, piece in seen)
            what = f'{words} {environment} {action}'
            expect(f'{what}: colours or none', ('\x1b' in text) == coloured)
            expect(f'{what}: the terminal keeps a colour', not coloured or text.rstrip().endswith('\x1b[39;49m\x1b[0m'))
            expect(f'{what}: status {status}', status == (action == ['fly']))
            check_width(what, text)


def counts(what, pieces, form):
    """The counts that were shown in a form."""
    numbers = [int(number.replace(',', '')) for number in re.findall(form, '\r'.join(piece for _, piece in pieces))]
    expect(f'{what}: no count', numbers)
    expect(f'{what}: {numbers}', numbers == sorted(numbers))
    return numbers


def progress(folder):
    """A run with a slow disk: each counted line, and the line of the run between them."""
    status, seen = on_terminal(options.faulty, ['custom', 'e', '-dec:5m', '-hex:1m'], folder, ORVANE_TEST_SLOW='400')
    seen = [(at, without_colours(text)) for at, text in seen]
    expect(f'run: status {status}', status == 0)
    counts('writing', seen, 'Writing\\.\\.\\.    ([0-9,]+)  digits written')
    counts('reading back', seen, 'Verifying\\.\\.\\.    ([0-9,]+)  digits hashed')
    shown = [(at, float(share)) for at, text in seen for share in re.findall('([0-9.]+)%  0:', text)]
    expect(f'the line of the run: {shown}', len(shown) > 3 and shown == sorted(shown, key=lambda pair: pair[1]))
    moves = [0] + [at for number, (at, share) in enumerate(shown) if number == 0 or share > shown[number - 1][1]] + [seen[-1][0]]
    expect(f'the line of the run stood still: {shown}', max(b - a for a, b in zip(moves, moves[1:])) < 3)
    check_width('run', ''.join(text for _, text in seen))

    seen = on_terminal(options.program, ['custom', 'e', '-dec:5m', '-od:0'], folder)[1]
    counts('processing', [(at, without_colours(text)) for at, text in seen], 'Processing\\.\\.\\. ([0-9,]+)  digits analyzed')

    name = next(path.name for path in pathlib.Path(folder).glob('* - Dec - *.txt'))
    keys = '\n'.join([name, '2', '1', '5m', 'out', '', '', ''])
    status, seen = on_terminal(options.faulty, ['digitviewer'], folder, keys, ORVANE_TEST_SLOW='50')
    expect(f'viewer: status {status}', status == 0)
    counts('extracting', [(at, without_colours(text)) for at, text in seen], '([0-9,]+)  digits written')


def no_terminal(folder):
    for words in (["--help"], ["about"], ["fly"], ["custom", "pi", "-dec:1000", "-json:1"], ["bbp", "-threads:1"], []):
        seen = subprocess.run([options.program, 'priority:0', *words], cwd=folder, stdin=subprocess.DEVNULL, env={**os.environ, 'TERM': 'xterm'},
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60).stdout
        expect(f'{words}: an escape byte', b'\x1b' not in seen)
        expect(f'{words}: a carriage return', b'\r' not in seen)
        check_width(f'{words}', seen.decode())
    for path in pathlib.Path(folder).glob('Validation*'):
        expect(f'{path.name}: an escape byte', b'\x1b' not in path.read_bytes())


with tempfile.TemporaryDirectory() as scratch:
    for step in (colours, progress, no_terminal):
        step(scratch)

sys.exit('\n'.join(faults) if faults else 0)
