#!/usr/bin/env python3
"""Watches the system calls of each allocator under strace: their flags, their order, and what they leave behind.

    allocator_calls.py allocator_probe

Ends with status 77 where strace is missing or may not trace."""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

MIB = 1 << 20
SIZE = 12 * MIB
TRACED = "mmap,munmap,mlock,mlockall,munlockall,mbind,move_pages,sched_setaffinity"
CALL = re.compile(r"^(\w+)\((.*)\)\s+= (0x[0-9a-f]+|-?\d+)(?: (\w+))?")
ANONYMOUS = "MAP_PRIVATE|MAP_ANONYMOUS"
POPULATE = ANONYMOUS + "|MAP_POPULATE"
LARGE = POPULATE + "|MAP_HUGETLB"
NO_LOCKING = ('This process does not have "CAP_IPC_LOCK". Page locking will not be possible.\n'
              "Please run Orvane with elevation to enable page locking.\n")
PROBE = None


class Call:
    def __init__(self, name, arguments, result, error):
        self.name, self.text, self.error = name, arguments, error
        self.result = int(result, 0)
        # Brackets hold lists; what is counted here stands outside of them.
        self.arguments = re.split(r", (?![^\[]*\])", arguments)

    def address(self):
        return 0 if self.arguments[0] == "NULL" else int(self.arguments[0], 0)

    def length(self):
        return int(self.arguments[1])

    def flags(self):
        return self.arguments[3]


class Run:
    """One allocation: exit status, output, and the calls of each thread in their order, the main thread's first."""

    def __init__(self, key, size=SIZE, settings="", machine=""):
        with tempfile.TemporaryDirectory() as folder:
            prefix = os.path.join(folder, "trace")
            done = subprocess.run(
                ["strace", "-ff", "-qq", "-a1", "-e", "trace=" + TRACED, "-e", "signal=none", "-o", prefix,
                 PROBE, key, str(size), "1", settings, machine],
                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60, check=False)
            self.status, self.output = done.returncode, done.stdout
            self.calls = []
            for name in sorted(os.listdir(folder), key=lambda n: int(n.split(".")[-1])):
                with open(os.path.join(folder, name), encoding="utf-8") as trace:
                    self.calls += [Call(*found.groups()) for found in map(CALL.match, trace) if found]

    def named(self, *names):
        return [call for call in self.calls if call.name in names]

    def mapped(self, size, flags):
        """The calls that map `size` bytes anywhere."""
        return [call for call in self.named("mmap") if call.address() == 0 and call.length() == size
                and call.flags() == flags and call.arguments[2] == "PROT_READ|PROT_WRITE"]

    def given_back(self, mapping):
        return any(call.address() == mapping.result and call.length() == mapping.length() and call.result == 0
                   for call in self.named("munmap"))

    def errors(self):
        return re.findall(r"^Allocation Error: (.*)$", self.output, re.MULTILINE)


def has_large_pages():
    with open("/proc/meminfo", encoding="utf-8") as info:
        found = re.search(r"^HugePages_Free:\s+(\d+)", info.read(), re.MULTILINE)
    return found is not None and int(found.group(1)) * 2 * MIB >= SIZE


class AllocatorCalls(unittest.TestCase):
    def allocated(self, run):
        self.assertEqual(run.status, 0, run.output)

    def needs_numa(self, run):
        if "only one NUMA node" in run.output or any(call.error in ("EPERM", "ENOSYS") for call in run.named("mbind")):
            self.skipTest("the kernel knows no nodes, or this process may not use them")

    def one(self, calls):
        self.assertEqual(len(calls), 1)
        return calls[0]

    def test_malloc_asks_for_nothing_special(self):
        run = Run("malloc")
        self.allocated(run)
        self.assertFalse([call for call in run.named("mmap") if "POPULATE" in call.flags()])

    def test_mmap_populates_in_one_call_for_one_task(self):
        run = Run("mmap")
        self.allocated(run)
        self.assertTrue(run.given_back(self.one(run.mapped(SIZE, POPULATE))))
        samples = run.named("move_pages")
        self.assertEqual(len(samples), 1024)
        for call in samples:
            if call.result == 0:
                self.assertRegex(call.text, r"^0, 1, \[0x[0-9a-f]+\], NULL, \[\d+\], 0$")

    def test_large_pages_are_tried_first(self):
        run = Run("mmap", size=SIZE - 5000, settings='{MemoryPolicy : {LargePages : "attempt"}}')
        self.allocated(run)
        large = self.one(run.mapped(SIZE, LARGE))
        if has_large_pages():
            self.assertRegex(run.output, r"Large Page Bytes: +12,582,912 ")
            return
        self.assertEqual(large.error, "ENOMEM")
        self.assertEqual(run.errors(), ["Unable to obtain large pages. (Cannot allocate memory)"])
        self.assertRegex(run.output, r"Page Size: +4,096\n +Large Page Bytes: +0 \(")
        self.assertTrue(run.given_back(self.one(run.mapped(SIZE - 4096, POPULATE))))

    def test_the_right_to_lock_is_tested_before_the_block_is_mapped(self):
        for mode, status in (("attempt", 0), ("forced", 3)):
            run = Run("mmap", settings='{MemoryPolicy : {LockPages : "%s"}}' % mode, machine="unprivileged")
            self.assertEqual(run.status, status, run.output)
            self.assertIn(NO_LOCKING, run.output)
            block = self.one(run.mapped(SIZE, POPULATE))
            test, lock = self.one(run.named("mlockall")), self.one(run.named("mlock"))
            self.assertEqual((test.text, test.error), ("MCL_CURRENT", "EPERM"))
            self.assertEqual((lock.address(), lock.length(), lock.result), (block.result, SIZE, -1))
            order = [run.calls.index(call) for call in (test, block, lock)]
            self.assertEqual(order, sorted(order))
            self.assertTrue(run.given_back(block))
            if mode == "forced":
                self.assertEqual(run.errors(), ["Unable to force locked pages."])
            else:
                self.assertRegex(self.one(run.errors()), r"^Unable to lock pages\. \(.*\)$")
                self.assertRegex(run.output, r"Locked Bytes: +0 \(")

    def test_interleaving_binds_threads_and_pages(self):
        # Node 0 is there, node 1 is not: the kernel accepts the one and refuses the other, both policies.
        run = Run("interleave", settings="{Nodes : [0 1] Hashed : \"false\"}", machine="2")
        self.allocated(run)
        self.needs_numa(run)
        block = self.one(run.mapped(SIZE, ANONYMOUS))
        for node, policies in ((0, ["MPOL_BIND"]), (1, ["MPOL_BIND", "MPOL_PREFERRED"])):
            for number in range(node, SIZE // (2 * MIB), 2):
                binds = [call for call in run.named("mbind") if call.address() == block.result + number * 2 * MIB]
                self.assertEqual([call.arguments[2] for call in binds], policies)
                for call in binds:
                    self.assertEqual(call.length(), 2 * MIB)
                    self.assertEqual(int(call.arguments[3].strip("[]"), 0), 1 << node)
                    self.assertEqual(call.arguments[4:], ["65", "MPOL_MF_MOVE"])
                    self.assertEqual(call.error, "EINVAL" if node == 1 else None)
        self.assertIn("mbind() failed for node 1. (Invalid argument)", run.errors())
        self.assertIn("Unable to place all pages onto node 1", run.errors())
        self.assertEqual(len(run.named("sched_setaffinity")), 4, "two threads moved, two moved back")
        self.assertTrue(run.given_back(block))

    def test_libnuma_interleaves_by_policy(self):
        run = Run("interleave-libnuma")
        if run.status == 1:
            self.assertIn("NUMA is not available on this system.", run.output)
            return
        self.allocated(run)
        block = self.one([call for call in run.named("mbind") if call.arguments[2] == "MPOL_INTERLEAVE"])
        self.assertEqual(block.length(), SIZE)
        self.assertTrue(any(call.address() == block.address() for call in run.named("munmap")))


if __name__ == "__main__":
    PROBE = os.path.abspath(sys.argv.pop(1))
    if shutil.which("strace") is None or subprocess.run(
            ["strace", "-qq", "-o", os.devnull, "true"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        print("strace is missing or may not trace here")
        sys.exit(77)
    unittest.main()
