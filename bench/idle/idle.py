#!/usr/bin/env python3
"""Idle cost of wrenfold-helper.

Starts the helper against a temporary home (plug-in bundle folder, empty
preferences) on a private session bus, waits for its launch, and then, in the
idle window before the next interval run (300 s away while the mail client
does not run), counts its wake-ups: the context switches of all its threads
(/proc/PID/task/*/status) and the time slices it ran (/proc/PID/task/*/schedstat).
A `sleep` process is measured the same way over the same window as the peer.
Also reports resident memory (VmRSS) after launch, next to the peer's.

usage: idle.py path/to/wrenfold-helper [window-seconds]
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time


# Threads GLib and GIO start on their own in a process that uses D-Bus; the
# helper itself starts none (everything runs on its main loop).
KNOWN_THREADS = {
    "gmain": "GLib's worker context: GIO's internal sources (file monitors, async I/O)",
    "gdbus": "GDBus: reads and writes the session bus connection",
    "pool-spawner": "GLib's thread pool: starts pool threads on request",
    "pool": "a worker of GLib's thread pool (GIO's blocking calls made asynchronous); "
            "it ends after some idle seconds, which is why a thread may end in the window",
    "dconf worker": "dconf's GSettings back end",
}


def thread_counters(pid):
    """{thread id: (name, context switches, time slices)} of every thread now."""
    threads = {}
    task_dir = f"/proc/{pid}/task"
    for tid in os.listdir(task_dir):
        try:
            switches = 0
            with open(f"{task_dir}/{tid}/comm") as f:
                name = f.read().strip()
            with open(f"{task_dir}/{tid}/status") as f:
                for line in f:
                    if line.startswith(("voluntary_ctxt_switches", "nonvoluntary_ctxt_switches")):
                        switches += int(line.split()[1])
            with open(f"{task_dir}/{tid}/schedstat") as f:
                slices = int(f.read().split()[2])
            threads[tid] = (name, switches, slices)
        except FileNotFoundError:
            pass  # a thread that ended meanwhile
    return threads


def window_counts(before, after):
    """Context switches and time slices in the window, of the threads that
    lived through it (a thread that ends inside the window would take its
    whole life's count off the sum), and the names of those that came or went."""
    switches = slices = 0
    for tid in before.keys() & after.keys():
        switches += after[tid][1] - before[tid][1]
        slices += after[tid][2] - before[tid][2]
    started = sorted(after[t][0] for t in after.keys() - before.keys())
    ended = sorted(before[t][0] for t in before.keys() - after.keys())
    return switches, slices, started, ended


def rss_kib(pid):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


def ratio(a, b):
    if b == 0:
        return "equal (both 0)" if a == 0 else "n/a (peer 0)"
    return f"{a / b:.2f}"


def wait_for(proc_stderr_path, text, seconds):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        with open(proc_stderr_path, errors="replace") as f:
            if text in f.read():
                return True
        time.sleep(0.05)  # polling a file the helper writes; nothing to await
    return False


def main():
    if len(sys.argv) < 2:
        print(__doc__)
        return 2
    helper = os.path.abspath(sys.argv[1])
    window = float(sys.argv[2]) if len(sys.argv) > 2 else 30.0
    home = tempfile.mkdtemp(prefix="wf-bench-idle-")
    bus = helper_proc = peer = None
    try:
        os.makedirs(f"{home}/Library/Mail/Bundles/Wrenfold.mailbundle")
        os.makedirs(f"{home}/Library/Preferences")
        bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        address = bus.stdout.readline().strip()
        env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=f"{home}/.config",
                   XDG_DATA_HOME=f"{home}/.local/share", XDG_DATA_DIRS=f"{home}/share",
                   DBUS_SESSION_BUS_ADDRESS=address)
        err_path = f"{home}/helper.stderr"
        with open(err_path, "w") as err:
            helper_proc = subprocess.Popen([helper], env=env, stderr=err, stdout=subprocess.DEVNULL)
        peer = subprocess.Popen(["sleep", str(int(window) + 60)])
        if not wait_for(err_path, "External OpenMeta Scanning", 30):
            print("the helper did not launch:\n" + open(err_path).read())
            return 1
        time.sleep(1.0)  # let launch-time work settle before the window opens
        rss_helper = rss_kib(helper_proc.pid)
        rss_peer = rss_kib(peer.pid)
        h0, p0 = thread_counters(helper_proc.pid), thread_counters(peer.pid)
        time.sleep(window)  # the idle window itself
        h1, p1 = thread_counters(helper_proc.pid), thread_counters(peer.pid)
        hs, hr, started, ended = window_counts(h0, h1)
        ps, pr, _, _ = window_counts(p0, p1)
        print(f"idle window: {window:.0f} s; helper threads through the window: "
              f"{len(h0.keys() & h1.keys())}")
        for tid in sorted(h1, key=int):
            name = h1[tid][0]
            why = "the main loop" if tid == str(helper_proc.pid) else KNOWN_THREADS.get(
                name, "not known to this benchmark")
            print(f"  thread {tid} {name}: {why}")
        if started or ended:
            print(f"  not counted: started in the window {started}, ended in it {ended}")
        print(f"context switches: helper {hs}, sleep {ps}, ratio {ratio(hs, ps)} "
              f"(helper {hs / window:.2f}/s)")
        print(f"time slices run:  helper {hr}, sleep {pr}, ratio {ratio(hr, pr)}")
        print(f"resident memory:  helper {rss_helper} KiB, sleep {rss_peer} KiB, "
              f"ratio {ratio(rss_helper, rss_peer)} (goal: helper under 8192 KiB: "
              f"{'met' if rss_helper < 8192 else 'NOT met'})")
        if os.environ.get("WF_BENCH_ROWS"):
            rows = [dict(measure=f"idle helper, context switches in {window:.0f} s", ours=hs,
                         peer=ps, peer_name="sleep", floor=0, goal="as sleep (0 wake-ups)",
                         met=hs <= ps),
                    dict(measure="idle helper, resident memory", ours=rss_helper / 1024,
                         peer=rss_peer / 1024, peer_name="sleep", unit="MiB",
                         goal="< 8 MiB", met=rss_helper < 8192)]
            for row in rows:
                print("@row " + json.dumps(row))
        return 0
    finally:
        for p in (helper_proc, peer, bus):
            if p and p.poll() is None:
                p.terminate()
                p.wait()
        shutil.rmtree(home, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
