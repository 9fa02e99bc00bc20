#!/usr/bin/env python3
"""argentpm beside keepassxc-cli on databases of the same shape.

For each size, bench_storage writes a user of N records (one folder per 50 records, three
levels of folders, the field lengths of real use) and exports the same tree as a KeePass
XML file, which `keepassxc-cli import` turns into a .kdbx with its default settings. Then
each command runs --runs times in a fresh process, password on standard input, and the
median wall time, the peak memory and the ratio keepassxc-cli / argentpm are printed
beside the target (argentpm at least 25 times as fast).

    bench/compare_keepassxc.py [--build DIR] [--runs K] [N ...]   (default 10000 100000)

Needs keepassxc-cli (Debian: keepassxc). Private HOME and XDG folders are used; the
runtime folder is in /dev/shm when there is one, as a desktop session keeps it in memory.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

PASW = "bench-password-1"
TARGET = 25.0


def run(cmd, stdin, env, ok=(0,)):
    """Runs cmd once: (seconds, peak RSS in MiB)."""
    t = time.perf_counter()
    p = subprocess.Popen(cmd, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env=env)
    p.stdin.write(stdin.encode())
    p.stdin.close()
    _, status, ru = os.wait4(p.pid, 0)
    took = time.perf_counter() - t
    code = os.waitstatus_to_exitcode(status)
    if code not in ok:
        sys.exit(f"{' '.join(cmd)} failed ({code}): {p.stderr.read().decode(errors='replace')}")
    return took, ru.ru_maxrss / 1024.0


def measure(cmd, stdin, env, runs, ok=(0,)):
    times, peaks = [], []
    for _ in range(runs):
        t, m = run(cmd, stdin, env, ok)
        times.append(t)
        peaks.append(m)
    return statistics.median(times), min(times), max(times), statistics.median(peaks)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--build", default=os.path.join(os.path.dirname(__file__), "..", "build"))
    ap.add_argument("--runs", type=int, default=3)
    ap.add_argument("sizes", nargs="*", type=int, default=[10000, 100000])
    a = ap.parse_args()
    bindir = os.path.join(os.path.abspath(a.build), "bin")
    argentpm = os.path.join(bindir, "argentpm")
    bench = os.path.join(os.path.abspath(a.build), "bench", "bench_storage")
    kp = shutil.which("keepassxc-cli")
    if not kp:
        sys.exit("keepassxc-cli is not installed (apt-get install keepassxc)")
    version = subprocess.run([kp, "--version"], capture_output=True, text=True).stdout.strip()
    root = tempfile.mkdtemp(prefix="argent-cmp-")
    runtime = tempfile.mkdtemp(prefix="argent-cmp-run-", dir="/dev/shm" if os.path.isdir("/dev/shm") else root)
    os.chmod(runtime, 0o700)
    env = dict(os.environ, HOME=root, XDG_DATA_HOME=root + "/data", XDG_CONFIG_HOME=root + "/config",
               XDG_RUNTIME_DIR=runtime, QT_QPA_PLATFORM="offscreen")
    print(f"keepassxc-cli {version}; {a.runs} runs each, median (min-max) wall time, median peak memory")
    results = {}
    try:
        for n in a.sizes:
            dbs = f"{root}/dbs{n}"
            os.makedirs(dbs)
            user = f"Bench{n}"
            subprocess.run([bench, "--gen", str(n), dbs], env=env, check=True)
            add = subprocess.run([argentpm, "--databases", dbs, "add", user, "0", "--title", "bench-target",
                                  "--password-stdin"], input=PASW + "\n", capture_output=True, text=True, env=env,
                                 check=True)
            target = add.stdout.strip().split()[-1]
            xml, kdbx = f"{root}/bench{n}.xml", f"{root}/bench{n}.kdbx"
            subprocess.run([bench, "--xml", str(n), dbs, xml], env=env, check=True)
            subprocess.run([kp, "import", "-q", "-p", xml, kdbx], input=f"{PASW}\n{PASW}\n", text=True, env=env,
                           check=True, stdout=subprocess.DEVNULL)
            os.remove(xml)
            ours = [argentpm, "--databases", dbs]
            rows = [
                ("open + list", ours + ["ls", user, "--password-stdin"], (0,),
                 [kp, "ls", "-R", "-q", kdbx], (0,)),
                ("search, no match", ours + ["find", user, "zqxjv", "--password-stdin"], (6,),
                 [kp, "search", "-q", kdbx, "zqxjv"], (0, 1)),
                ("one change + save", ours + ["rename", user, target, "bench-target-2", "--password-stdin"], (0,),
                 [kp, "edit", "-q", "-u", "bench-user-2", kdbx, "/bench-target"], (0,)),
            ]
            print(f"\n{n:,} records (argentpm file {os.path.getsize(f'{dbs}/{user}.bdb') / 1048576:.1f} MiB, "
                  f".kdbx {os.path.getsize(kdbx) / 1048576:.1f} MiB)")
            print(f"{'':18} {'argentpm':>22} {'keepassxc-cli':>22} {'ratio':>7} {'target':>8}")
            for name, ourcmd, ourok, theircmd, theirok in rows:
                o = measure(ourcmd, PASW + "\n", env, a.runs, ourok)
                t = measure(theircmd, PASW + "\n", env, a.runs, theirok)
                ratio = t[0] / o[0]
                results[(n, name)] = o[0]
                print(f"{name:18} {o[0]:6.3f} s ({o[1]:.2f}-{o[2]:.2f}) {o[3]:4.0f} MiB"
                      f" {t[0]:6.2f} s ({t[1]:.1f}-{t[2]:.1f}) {t[3]:4.0f} MiB {ratio:6.1f}x {'>= 25x':>8}"
                      f" {'ok' if ratio >= TARGET else 'MISSED'}")
            sys.stdout.flush()
        if len(a.sizes) >= 2:
            lo, hi = a.sizes[0], a.sizes[-1]
            print(f"\nargentpm {lo:,} -> {hi:,} records (target: at most {hi // lo * 11 // 10}x the time)")
            for name in ("open + list", "search, no match", "one change + save"):
                print(f"  {name:18} {results[(hi, name)] / results[(lo, name)]:5.1f}x")
    finally:
        shutil.rmtree(root, ignore_errors=True)
        shutil.rmtree(runtime, ignore_errors=True)


if __name__ == "__main__":
    main()
