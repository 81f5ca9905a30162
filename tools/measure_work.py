"""Writes src/session/work_rows.inc: what the stages of a run and their parts take, by running them.

usage: measure_work.py PROGRAM OUTPUT

Takes some minutes on an idle machine. The times are those of the processors, so that other work on the machine counts
little.
"""
import json
import pathlib
import subprocess
import sys
import tempfile

RUNS = [('pi', [], (10**6, 10**7, 10**8, 10**9)), ('pi', ['-algorithm:ramanujan'], (10**6, 10**7)),
        ('e', [], (10**6, 10**7, 10**8)), ('sqrt:2', [], (10**6, 10**7, 10**8)),
        ('phi', [], (10**6, 10**7, 10**8)),
        ('zeta3', [], (10**6, 5 * 10**6)), ('catalan', [], (10**6, 5 * 10**6)), ('log:2', [], (10**6, 5 * 10**6)),
        ('lemniscate', [], (10**6, 5 * 10**6))]


def rows_of(program, constant, options, digits):
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run([program, 'priority:0', 'pause:-2', 'skip-warnings', 'colors:0', 'custom', constant,
                               f'-dec:{digits}', f'-hex:{digits}', '-json:1', '-bbp:0', *options], cwd=folder,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True)
        if done.returncode != 0:
            print(f'{constant} {digits}: left out\n{done.stdout[-400:]}', file=sys.stderr)
            return []
        results = json.loads(next(pathlib.Path(folder).glob('*.json')).read_text())
    what, times = results['Computation'], results['Times']
    rows = []
    for stage in times['Stages']:
        name = 'Compute' if stage['Name'] == what['Constant'] else stage['Name']
        for part in stage['Parts']:
            seconds = part['ProcessorMicroseconds'] / 1e6
            rows.append(f'    {{"{what["Constant"]}", "{what["Algorithm"]}", {digits}, "{name}", "{part["Name"]}", '
                        f'{seconds:.4g}}},')
    return rows


lines = ['// Made by tools/measure_work.py.']
for constant, options, sizes in RUNS:
    for digits in sizes:
        lines += rows_of(sys.argv[1], constant, options, digits)
pathlib.Path(sys.argv[2]).write_text('\n'.join(lines) + '\n')
