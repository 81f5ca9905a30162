"""Random command lines and dialogues through the whole program: status 0 where the model of the line says that it can be
done, and then it was done; else status 1 and nothing is left. No crash, no hang, no escape byte.

usage: random_dialogues.py --program PROGRAM [--lines N] [--seed S]

By hand with --lines 5000. What the numbers of options and menus set is compared in a process by random_lines_test.cpp.
"""
import argparse
import math
import pathlib
import random
import re
import subprocess
import sys
import tempfile

parser = argparse.ArgumentParser()
parser.add_argument('--program', required=True)
parser.add_argument('--lines', type=int, default=60)
parser.add_argument('--seed', type=int, default=random.randrange(2**32))
options = parser.parse_args()
dice = random.Random(options.seed)
MOST = 2500  # digits that a line may ask for


def digits_of(value, radix, scale):
    """The digits of value / scale in a radix, with the point; a file of digits begins with them."""
    whole, fraction = value // scale, value % scale * radix**MOST // scale
    return f'{whole}.' + (f'{fraction:0{MOST}d}' if radix == 10 else f'{fraction:0{MOST}x}')


def arc_cotangent(n, scale):
    total, term, k = 0, scale // n, 0
    while term:
        total += (term if k % 2 == 0 else -term) // (2 * k + 1)
        term, k = term // (n * n), k + 1
    return total


SCALE = 10**(2 * MOST)
VALUES = {'pi': 4 * (4 * arc_cotangent(5, SCALE) - arc_cotangent(239, SCALE)),
          'e': sum(SCALE // math.factorial(k) for k in range(2000)),
          'sqrt:2': math.isqrt(2 * SCALE * SCALE),
          'phi': (SCALE + math.isqrt(5 * SCALE * SCALE)) // 2}
# The sums are a little too small in their last digits, which nothing looks at.
DIGITS = {(name, radix): digits_of(value, radix, SCALE) for name, value in VALUES.items() for radix in (10, 16)}
ALGORITHMS = {'pi': ['chudnovsky', 'ramanujan'], 'e': ['exp(1)', 'exp(-1)'], 'sqrt:2': ['newton'], 'phi': ['newton']}


def number_of(text, units):
    """What a number means; None where it is none."""
    found = re.fullmatch(r'([0-9]{1,3}(?:,[0-9]{3})+|[0-9]+(?:_[0-9]+)*)(?:e([0-9]+)|([%s]))?' % (units or ' '), text, re.I)
    if not found or found[3] == ' ':
        return None
    value = int(re.sub('[,_]', '', found[1]))
    if found[2]:
        return value * 10**min(int(found[2]), 30)
    return value * 1000**(1 + units.index(found[3].lower())) if found[3] else value


def number_text(low, high, limit, units='kmbt'):
    """A text, and what it means if that is taken: a number from low to high. None of those that lie behind them and up to
    the limit, which the program takes and which would cost much."""
    while True:
        pieces = ['1', '2', '1000', '100', '500', '99', ',000', '_50', 'k', 'K', 'e2', 'e3', '.5', ' ', 'x', '-', '1t', '00t', 'e', '0']
        text = ''.join(dice.choice(pieces) for _ in range(dice.randint(1, 3)))
        value = number_of(text, units)
        if value is None or value <= high or value > limit:
            return text, value if value is not None and low <= value <= high else None


def digits_per_file():
    text, value = number_text(0, 10**40, 0)
    if text.startswith('-') and (value := number_of(text[1:], 'kmbt')) is not None:
        value = -value if value <= 1 else None
    return text, value


def switch_text():
    text = dice.choice(['1', '0', 'yes', 'no', 'true', 'false', 'on', 'maybe', '2', '', '-1', '1x', 'Yes'])
    value = {'yes': 1, 'true': 1, 'no': 0, 'false': 0, '': 0, '1x': None, 'on': None, 'maybe': None, 'Yes': None}
    return text, value[text] if text in value else int(text)


def hexadecimal_digits():
    text, value = number_text(0, MOST, 10**15)
    return text, None if value is not None and 0 < value < 83 else value


def word_text(good, bad):
    text = dice.choice(good + [bad])
    return text, None if text == bad else text


def line_of(makers, most):
    """Options from a table {key: maker of (text, value)}. Returns the words, and {key: value} or None if they are refused."""
    words, values, texts = [], {}, {}
    for key in dice.choices(list(makers), k=dice.randint(0, most)):
        text, value = makers[key]()
        words.append(f'{key}:{text}')
        refused = value is None or texts.setdefault(key, text) != text
        values = None if refused or values is None else {**values, key: value}
    return words, values


def play(folder, words, lines=()):
    """Status and screen of a run; None instead of a status for one that hangs or dies."""
    command = [options.program, 'priority:0', *words]
    try:
        run = subprocess.run(command, cwd=folder, input='\n'.join([*lines, '']), stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, timeout=60, text=True)
    except subprocess.TimeoutExpired:
        return None, 'still running after a minute'
    return run.returncode if run.returncode in (0, 1) else None, run.stdout


def made(folder, pattern):
    return [path for path in pathlib.Path(folder).rglob(pattern) if path.is_file()]


def custom(folder):
    """A computation from the line or by its menu."""
    constant = dice.choice(list(VALUES))
    makers = {'-dec': lambda: number_text(100, MOST, 10**15 + 50), '-hex': hexadecimal_digits,
              '-od': switch_text, '-verify': switch_text, '-json': switch_text, '-overwrite': switch_text, '-bbp': switch_text,
              '-TD': lambda: number_text(1, 100, 65536, ''), '-C': digits_per_file,
              '-PF': lambda: word_text(['none', 'spawn', 'pushpool', 'cppasync'], 'fly'),
              '-MA': lambda: word_text(['malloc', 'mmap'], 'fly'),
              '-algorithm': lambda: word_text(ALGORITHMS[constant], 'fly')}
    words, values = line_of(makers, 4)
    if not any(word.startswith('-dec:') for word in words):
        words.append('-dec:1k')
        values = values if values is None else {**values, '-dec': 1000}
    if values and values.get('-bbp') and constant != 'pi':
        values = None  # there is such a formula for Pi alone
    if dice.random() < 0.1:
        words, values = words + [dice.choice(['-fly:1', 'pi', '-dec', 'colors:0', '-o', '-mode:fast'])], None
    return ['custom', constant, *words], (), values, lambda screen: check_digits(folder, constant, values)


def check_digits(folder, constant, values):
    for radix, name in ((10, '-dec'), (16, '-hex')):
        count = values.get(name, 0) if values.get('-od', 1) else 0
        files = made(folder, f'* - {"Dec" if radix == 10 else "Hex"} - *.txt')
        if len(files) != (count != 0):
            return f'{len(files)} files of digits to the base {radix}'
        if files and files[0].read_text() != DIGITS[constant, radix][:count + 2]:
            return f'wrong digits to the base {radix}'
    if len(made(folder, 'Validation - *.txt')) != 1:
        return 'no validation file'
    if len(made(folder, '*.json')) != (values.get('-json', 0) != 0):
        return 'JSON or none'
    return None


def custom_menu(folder):
    """The menu, with answers that are asked for again, up to the end of the run."""
    lines, decimal = [], 0
    while not decimal:
        text, value = number_text(100, MOST, 10**15 + 50)
        if ' ' in text:
            continue  # a menu takes blanks away, and an empty answer for the old value
        # A count that cannot be is told, and the menu comes up again; what is no number is asked for again.
        lines += ['3'] * (not lines or told) + [text]
        told = number_of(text, 'kmbt') is not None
        decimal = value or 0
    words = ['custom'] if dice.random() < 0.5 else []
    return words, ([] if words else ['3']) + lines + ['0'], {}, lambda screen: check_digits(folder, 'pi', {'-dec': decimal})


def bbp(folder):
    """Hexadecimal digits of Pi, from the line or by the menu."""
    makers = {'-offset': lambda: number_text(0, 2000, 10**16), '-digits': lambda: number_text(8, 400, 2**20),
              '-threads': lambda: number_text(1, 50, 65536),
              '-formula': lambda: word_text(['plouffe', 'bellard'], 'fly'), '-pin': switch_text}
    words, values = line_of(makers, 3)
    lines = ()
    if values is not None and dice.random() < 0.3:
        rows = {'-offset': '2', '-digits': '3', '-threads': '4'}
        given = {key: value for key, value in values.items() if key in rows}
        lines = [line for key, value in given.items() for line in (rows[key], 'none', str(value))] + ['0']
        words, values = [], given
    if not words and not lines:
        words = ['-offset:0']
    return ['bbp', *words], lines, values, lambda screen: check_bbp(screen, values)


def check_bbp(screen, values):
    offset, count = values.get('-offset', 0), values.get('-digits', 32)
    shown = re.sub('[ :\n]', '', ''.join(re.findall('^(?:[0-9a-f]{1,8} +)+:', screen, re.M)))
    return None if shown.startswith(DIGITS['pi', 16][2 + offset:2 + offset + count]) else 'wrong digits'


def viewer(folder):
    """A range of a file, written out by the line or the menu."""
    digits = DIGITS['e', 10]
    (pathlib.Path(folder) / 'e.txt').write_text(digits)
    out = pathlib.Path(folder) / 'out.txt'

    def right(first, last):
        text = ('2.' if first == 1 else '0.') + digits[first + 1:last + 2]
        return lambda screen: None if out.read_text() == text else 'wrong range'

    if dice.random() < 0.6:
        words, values = line_of({'-start': lambda: number_text(1, MOST, MOST), '-end': lambda: number_text(1, MOST, MOST)}, 2)
        first, last = (values or {}).get('-start', 1), (values or {}).get('-end', MOST)
        return ['digitviewer', 'e.txt', *words, '-extract', 'out.txt'], (), values if first <= last else None, right(first, last)
    first, last = sorted(dice.sample(range(1, MOST), 2))
    lines = ['e.txt', '2', '0', f'{first:,}', *(['1m', '12 x'] if dice.random() < 0.5 else []), f'{last:_}', 'out']
    fails = dice.random() < 0.3
    lines += ['', 'nothing.txt', ''] if fails else ['', '']
    return ['digitviewer'], lines, None if fails else {}, right(first, last)


def other(folder):
    """Lines without numbers of digits."""
    good = [['about'], ['--help'], ['help', 'bbp'], ['--version'], ['stress', '--help'], ['quiet:1', 'about'], ['logformula', '97', '-dec:1e4'],
            ['pause:-2', 'colors:no', 'height:50', 'about']]
    bad = [['fly'], ['about', 'x'], ['pause:x', 'about'], ['colors:maybe', 'about'], ['quiet:1:1', 'about'], ['bench'], ['bench', '1m', '25M'],
           ['bench', '-od:1'], ['stress', '-D:2m', 'BKT'], ['stress', 'XYZ'], ['stress', '-M:1.5', 'BKT'], ['benchio', '-M:1x'], ['benchio', '-json:on'],
           ['custom', 'tau'], ['custom', 'sqrt:16'], ['custom', 'sqrt:2k'], ['validate', 'nothing'], ['checkdigits'],
           ['checkdigits', 'nothing.txt'], ['config'], ['config', 'nothing'], ['logformula', '1'], ['logformula', '9x'], ['digitviewer', '-x'], []]
    words = dice.choice(good + bad)
    return words, (), {} if words in good else None, lambda screen: None


faults = []
for number in range(options.lines):
    kind = dice.choices([custom, custom_menu, bbp, viewer, other], [5, 1, 2, 1, 3])[0]
    with tempfile.TemporaryDirectory() as folder:
        words, lines, accepted, check = kind(folder)
        before = made(folder, '*')
        status, screen = play(folder, words, lines)
        fault = None
        if status != (0 if accepted is not None else 1):
            fault = f'status {status}'
        elif '\x1b' in screen:
            fault = 'an escape byte'
        elif accepted is not None:
            fault = check(screen)
        elif not lines and made(folder, '*') != before:
            fault = f'left {made(folder, "*")}'
        if fault:
            faults.append(f'{number}: {words} {list(lines)}: {fault}\n{screen[-1500:]}')

sys.exit('\n'.join([f'seed {options.seed}', *faults]) if faults else 0)
