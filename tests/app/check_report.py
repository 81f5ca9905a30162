"""Holds one run's console, validation file and results against each other and against the process.

usage: check_report.py CONSOLE TEXT RESULTS USER_SECONDS KERNEL_SECONDS CORES
"""
import datetime
import json
import re
import sys

sys.dont_write_bytecode = True
import json_schema  # noqa: E402

console, text = (open(path, encoding='utf-8').read() for path in sys.argv[1:3])
results = json.load(open(sys.argv[3], encoding='utf-8'))
user, kernel, cores = float(sys.argv[4]), float(sys.argv[5]), int(sys.argv[6])
mode, times = results['Mode'], results['Times']
faults = []


def expect(what, got, wanted, slack=0.0):
    if not (got == wanted or (slack and abs(got - wanted) <= slack)):
        faults.append(f'{what}: {got}, not {wanted}')


def value(source, label):
    """What stands behind the label, as numbers when it opens with one."""
    found = re.search('^' + re.escape(label) + r'\s*(.*?)\s*$', source, re.M)
    if not found:
        faults.append('no ' + label)
        return '0'
    return found[1]


def number(source, label):
    return float(value(source, label).split()[0].replace(',', ''))


faults += json_schema.faults_of('results', results)

# What was computed.
for label, key in ('Constant:', 'ConstantLong'), ('Algorithm:', 'AlgorithmLong'):
    expect(key, results['Computation'][key], value(console, label))

# Memory: what is asked for is what is taken.
working, tables = number(console, 'Working Memory...'), number(console, 'Twiddle Tables...')
expect('WorkingMemory', mode['WorkingMemory'], working)
expect('TotalMemory', mode['TotalMemory'], working + tables)
expect('Required Memory', number(console, 'Required Memory:'), working + tables)
expect('RequiredRam', results['ConfigurationDump']['Memory']['RequiredRam']['Value'], working + tables)
expect('Working Memory of the text', number(text, 'Working Memory:'), working)
expect('Total Memory of the text', number(text, 'Total Memory:'), working + tables)

# Times: the constant and its conversion; all stages; the process's own.
stages = [(stage['Name'], stage['Microseconds']) for stage in times['Stages']]
spent = sum(us for name, us in stages if name in (results['Computation']['Constant'], 'Base Conversion'))
expect('ComputationMicroseconds', times['ComputationMicroseconds'], spent, 2)
expect('sum of the stages', sum(us for _, us in stages), times['WallMicroseconds'], 3e5)
for source in console, text:
    expect('Total Computation Time', number(source, 'Total Computation Time:'), spent / 1e6, 0.00051)
    expect('Start-to-End Wall Time', number(source, 'Start-to-End Wall Time:'), times['WallMicroseconds'] / 1e6, 0.00051)
expect('UserMicroseconds', times['UserMicroseconds'] / 1e6, user, 0.1)
expect('KernelMicroseconds', times['KernelMicroseconds'] / 1e6, kernel, 0.1)

# Utilisation: of one core, and of those that the machine has, however many tasks there are.
expect('Threads', times['Threads'], cores)
for source in console, text:
    for label, share in ('CPU Utilization:', 1), ('Multi-core Efficiency:', cores):
        of_user, of_kernel = (float(x) for x in re.findall(r'([\d.]+) %', value(source, label)))
        expect(label, of_user, times['UserMicroseconds'] / times['WallMicroseconds'] * 100 / share, 0.02)
        expect(label + ' kernel', of_kernel, times['KernelMicroseconds'] / times['WallMicroseconds'] * 100 / share, 0.02)

# Digits.
for radix, label, part in ('Dec', '10^dec', 'DecimalDigits'), ('Hex', '16^hex', 'HexadecimalDigits'):
    digits = results[part]
    expect(part, digits['Digits'], results['Computation'][part])
    expect(part + ' counted', sum(digits['Counts']), digits['Digits'])
    for source in console, text:
        expect(radix + ' Counts', value(source, radix + ' Counts:'), ' '.join(map(str, digits['Counts'])))
        expect(radix + ' Hash', value(source, f'{radix} Hash: Floor(|x| * {label}) mod (2^61 - 1) ='), str(digits['Hash']))
for label, key in ('Spot Check:', 'SpotCheck'), ('Timer Sanity Check:', 'TimerSanityCheck'), \
                  ('Frequency Sanity Check:', 'FrequencySanityCheck'), ('Reference Clock:', 'ReferenceClock'):
    expect(label, value(text, label), results['Checks'][key])
for label, key in ('Start Date:', 'StartDate'), ('End Date:', 'EndDate'):
    shown = datetime.datetime.strptime(value(text, label), '%a %b %d %H:%M:%S %Y')
    expect(label, datetime.datetime.fromisoformat(times[key]).replace(tzinfo=None), shown)
# The clocks of a stage and of its parts are read one behind the other: a machine in use may take its time between them.
for stage in times['Stages']:
    expect('parts of ' + stage['Name'], sum(part['Microseconds'] for part in stage['Parts']), stage['Microseconds'], 5e4)
for part in 'DecimalDigits', 'HexadecimalDigits':
    expect('HashText', results[part]['HashText'], str(results[part]['Hash']))
expect('PeakMemory', mode['PeakMemory'] > working, True)
expect('ValidationFile', results['ValidationFile'], sys.argv[2])

sys.exit('\n'.join(faults) or 0)
