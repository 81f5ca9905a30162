"""Holds what the program writes as JSON against docs/results.schema.json.

usage: json_schema.py (FORM FILE)...    FORM is "results", or the name of a form among the schema's $defs

In a FILE the words of the start may stand in front of the object.
"""
import json
import pathlib
import re
import sys

SCHEMA = json.loads((pathlib.Path(__file__).parents[2] / 'docs' / 'results.schema.json').read_text())
TYPES = {'object': dict, 'array': list, 'string': str, 'integer': int, 'boolean': bool}


def validate(place, got, rule, faults):
    """What of JSON Schema the schema uses; a word that this does not know is a fault of its own."""
    if '$ref' in rule:
        return validate(place, got, SCHEMA['$defs'][rule['$ref'].rsplit('/', 1)[1]], faults)
    unknown = set(rule) - {'$schema', '$defs', 'title', 'type', 'const', 'enum', 'pattern', 'minimum', 'required',
                           'properties', 'additionalProperties', 'items'}
    kind = TYPES.get(rule.get('type'), object)
    wrong = (unknown or not isinstance(got, kind) or (kind is int and isinstance(got, bool))
             or ('const' in rule and got != rule['const']) or ('enum' in rule and got not in rule['enum'])
             or ('pattern' in rule and not re.search(rule['pattern'], got))
             or ('minimum' in rule and got < rule['minimum'])
             or [key for key in rule.get('required', []) if key not in got])
    if wrong:
        return faults.append(f'{place} is {str(got)[:60]}, against {str(rule)[:200]}')
    if kind is list:
        for number, item in enumerate(got):
            validate(f'{place}[{number}]', item, rule.get('items', {}), faults)
    if kind is dict:
        for key, item in got.items():
            more = rule.get('additionalProperties', {})
            known = rule.get('properties', {})
            if key not in known and more is False:
                faults.append(f'{place}.{key} is not in the schema')
            else:
                validate(f'{place}.{key}', item, known.get(key, more), faults)


def faults_of(form, got):
    faults = []
    validate(form, got, SCHEMA if form == 'results' else SCHEMA['$defs'][form], faults)
    return faults


if __name__ == '__main__':
    found = []
    for form, path in zip(sys.argv[1::2], sys.argv[2::2]):
        text = open(path, encoding='utf-8').read()
        found += faults_of(form, json.loads(text[text.index('{'):]))
    sys.exit('\n'.join(found) or 0)
