#!/usr/bin/env python3
"""check_isa_leak.py BINARY: lists functions outside the kernel namespaces that use more than baseline x86-64.

A kernel lives in a namespace named after its instruction set (::avx2::, ::avx512::). Any other function must run
on every x86-64 processor, because it runs before, or without, the processor check."""
import re
import subprocess
import sys

FUNCTION = re.compile(r"^[0-9a-f]+ <(.*)>:$")
# VEX and EVEX mnemonics begin with v; the rest are scalar extensions that the kernels use.
WIDE = re.compile(r"\t(v[a-z0-9]+|mulx|adcx|adox|rorx|shlx|shrx|sarx|bextr|andn|blsr|blsi|blsmsk|pdep|pext|lzcnt|"
                  r"tzcnt|popcnt)[bwlq]?\s")
BASELINE_V = ("verr", "verw")
KERNEL = re.compile(r"::(avx2|avx512)(::|\b)")


def main():
    text = subprocess.run(["objdump", "-d", "-C", "--no-show-raw-insn", sys.argv[1]], check=True,
                          capture_output=True, text=True).stdout
    leaks, functions, kernels, current = {}, 0, 0, None
    for line in text.splitlines():
        match = FUNCTION.match(line)
        if match:
            current = match.group(1)
            functions += 1
            kernels += bool(KERNEL.search(current))
            continue
        match = WIDE.search(line)
        if match and not match.group(1).startswith(BASELINE_V) and current and not KERNEL.search(current):
            # tzcnt runs as bsf on old processors; compilers emit it as "rep bsf" for non-zero operands.
            if match.group(1) == "tzcnt":
                continue
            leaks.setdefault(current, match.group(1))
    for name, instruction in leaks.items():
        print(f"{name}: {instruction}")
    print(f"{functions} functions, {kernels} in kernel namespaces, {len(leaks)} leaks")
    if kernels == 0:
        print("no kernel was found: this binary cannot show anything")
    return 1 if leaks or kernels == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
